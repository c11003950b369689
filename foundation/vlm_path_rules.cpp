#include "foundation/vlm_path_rules.h"

#include <sys/stat.h>

#include <cstdlib>

#include "foundation/uni_fileio.h"
#include "foundation/vlm_string.h"
#include "foundation/vlm_time.h"

namespace {

// Paths longer than this are taken as they stand: no %NAME% is expanded.
constexpr std::size_t expansion_length_limit = 512;
// A value that names itself (A=%A%) would otherwise be expanded for ever.
constexpr int expansion_count_limit = 4096;
// A modified time of more than 32 bits is recorded under this kind, which the
// time range does not accept.
constexpr std::uint32_t wide_unix_kind = 16;

// "\" wins over "/". A separator only at index 0 does not split, so "/etc"
// is a name in ".". A trailing ".." moves into the folder, with the
// separator doubled for "/".
template <class Text>
bool split_path_text(Text const& path, Text& dir, Text& name, Text const& back_parent, Text const& slash_parent)
{
    using ch = typename Text::value_type;
    dir.clear();
    name.clear();
    if (path.empty()) return false;
    std::size_t pos = path.rfind(ch('\\'));
    Text const* parent = &back_parent;
    if (pos == Text::npos) {
        pos = path.rfind(ch('/'));
        parent = &slash_parent;
    }
    if (pos == Text::npos || pos == 0) {
        name = path;
        dir.assign(1, ch('.'));
        return true;
    }
    dir = path.substr(0, pos);
    name = path.substr(pos + 1);
    if (name.size() == 2 && name[0] == ch('.') && name[1] == ch('.')) {
        name.assign(1, ch('.'));
        dir += *parent;
    }
    return true;
}

// Removes every star, left to right, noting a star that stood first or last
// at the moment it went.
void remove_stars(std::wstring& core, bool& front, bool& back)
{
    for (std::size_t pos = core.find(L'*'); pos != std::wstring::npos; pos = core.find(L'*')) {
        if (pos == 0) front = true;
        if (pos == core.size() - 1) back = true;
        core.erase(pos, 1);
    }
}

std::vector<std::wstring> filter_tokens(std::wstring const& text)
{
    std::vector<std::wstring> tokens;
    // A "," anywhere makes "|" plain: the "," split replaces the "|" split.
    if (text.find(L'|') != std::wstring::npos) split_wide(text, L'|', tokens, /*trim=*/true, /*keep_empty=*/false);
    if (text.find(L',') != std::wstring::npos) split_wide(text, L',', tokens, /*trim=*/true, /*keep_empty=*/false);
    if (tokens.empty()) tokens.push_back(text);
    return tokens;
}

// Pulls the stream part (behind the first ":") out of the entry's core.
// A stream of exactly "*" marks the first entry of the filter, not the
// current one. The placement is kept as it always was: the stream flags serve
// a mode this tool never runs, so nothing here reads them.
void parse_stream_part(std::vector<filter_entry>& out, filter_entry& entry)
{
    std::size_t colon = entry.core.find(L':');
    if (colon == std::wstring::npos) return;
    entry.has_stream = true;
    entry.stream_core = entry.core.substr(colon + 1);
    entry.core.erase(colon);
    if (entry.stream_core == L"*") out.front().stream_match_all = true;
    else remove_stars(entry.stream_core, entry.stream_star_front, entry.stream_star_back);
}

// The time range against the file's modified time on disk. Only a bound
// whose `valid` flag is set limits anything.
bool within_time_range(time_range const& range, std::wstring const& path, file_info& info)
{
    time_bound const& start = range.start;
    time_bound const& stop = range.stop;
    if (!start.valid && !stop.valid) return true;
    if (info.modified == 0) {
        struct stat st {};
        if (::stat(wide_to_utf8(path).c_str(), &st) != 0) return false;
        info.inode = st.st_ino;
        info.size = static_cast<std::uint64_t>(st.st_size);
        info.modified = static_cast<std::uint64_t>(st.st_mtime);
        info.changed = static_cast<std::uint64_t>(st.st_ctime);
        info.accessed = static_cast<std::uint64_t>(st.st_atime);
        info.mode = st.st_mode;
        info.time_kind = info.modified > 0xFFFFFFFFu ? wide_unix_kind : vlm::unix_time;
        if (info.modified == 0) return false;
    }
    std::uint64_t start_value = 0;
    std::uint64_t stop_value = 0;
    if (info.time_kind == vlm::filetime) {
        start_value = start.filetime;
        stop_value = stop.filetime;
    } else if (info.time_kind == vlm::unix_time) {
        start_value = start.unix_seconds;
        stop_value = stop.unix_seconds;
    } else {
        return false;
    }
    if (start.valid && info.modified < start_value && start_value > info.spare_time) return false;
    if (stop.valid && (info.modified > stop_value || stop_value < info.spare_time)) return false;
    return true;
}

// The folder test of a path entry: `core` must appear in `dir` and end at a
// folder boundary, so "/prefetch" does not pass ".../prefetch2".
bool path_entry_matches(filter_entry const& entry, std::wstring& dir)
{
    std::size_t p = dir.find(entry.core);
    wchar_t const slash = entry.core.front();
    wchar_t const other = slash == L'/' ? L'\\' : L'/';
    if (p == std::wstring::npos && dir.find(other) != std::wstring::npos) {
        replace_char(dir, other, slash, /*both_cases=*/false);
        p = dir.find(entry.core);
    }
    if (p == std::wstring::npos) return false;
    std::size_t e = p + entry.core.size();
    return e == dir.size() || dir[e] == L'/' || dir[e] == L'\0';
}

bool signature_matches(filter_entry const& entry, std::wstring const& path)
{
    uni::fileio file;
    if (!file.open(path, /*write=*/false, /*truncate=*/false)) return false;
    std::uint64_t const length = entry.signature.size();
    if (file.size() < length || file.size() - length < entry.signature_offset) return false;
    std::vector<std::uint8_t> bytes;
    if (!file.read(bytes, static_cast<std::int64_t>(length), entry.signature_offset)) return false;
    return bytes == entry.signature;
}

bool name_entry_matches(filter_entry const& entry, std::wstring const& name, std::wstring const& path)
{
    if (entry.match_all) return true;
    if (entry.star_front && entry.star_back) return name.find(entry.core) != std::wstring::npos;
    if (entry.star_front) {
        // The first occurrence decides: "*.pf" does not pass "a.pf.pf".
        std::size_t p = name.find(entry.core);
        return p != std::wstring::npos && p + entry.core.size() == name.size();
    }
    if (entry.star_back) return name.compare(0, entry.core.size(), entry.core) == 0;
    if (!entry.core.empty() && entry.core == name) return true;
    return !entry.signature.empty() && signature_matches(entry, path);
}

} // namespace

bool split_path(std::string const& path, std::string& dir, std::string& name)
{
    return split_path_text<std::string>(path, dir, name, "\\..", "//..");
}

bool split_path(std::wstring const& path, std::wstring& dir, std::wstring& name)
{
    return split_path_text<std::wstring>(path, dir, name, L"\\..", L"//..");
}

bool split_name_extension(char const* path, std::string& dir, std::string& base, std::string& ext)
{
    std::string name;
    base.clear();
    ext.clear();
    if (!split_path(std::string(path ? path : ""), dir, name)) return false;
    std::size_t dot = name.rfind('.');
    if (dot == std::string::npos) {
        base = name;
    } else {
        base = name.substr(0, dot);
        ext = name.substr(dot + 1);
    }
    return true;
}

// %NAME% is looked up exactly as written. A known value replaces the
// reference and is itself scanned again, so values may nest; an unknown name
// stays and the scan moves on behind its closing "%".
std::string expand_path_variables(std::string const& path, bool allow_shadow_copy)
{
    std::string out = path;
    std::size_t scan = 0;
    int expansions = 0;
    while (out.size() <= expansion_length_limit && expansions < expansion_count_limit) {
        std::size_t open = out.find('%', scan);
        if (open == std::string::npos) break;
        std::size_t close = out.find('%', open + 1);
        if (close == std::string::npos) break;
        std::string name = out.substr(open + 1, close - open - 1);
        char const* value = name.find('\0') == std::string::npos ? std::getenv(name.c_str()) : nullptr;
        if (value) {
            out.replace(open, close - open + 1, value);
            ++expansions;
            continue;
        }
        if (allow_shadow_copy && to_lower_narrow(name) == "vss")
            out.replace(open, close - open + 1, shadow_copy_prefix(/*lower=*/false, /*with_root=*/true));
        scan = close + 1;
    }
    return out;
}

// "\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy", 46 characters in full;
// the volume number follows it.
std::string shadow_copy_prefix(bool lower, bool with_root)
{
    std::string prefix = with_root ? "\\\\?\\GLOBALROOT" : "";
    prefix += "\\Device\\HarddiskVolumeShadowCopy";
    if (lower) to_lower_narrow(prefix);
    return prefix;
}

void replace_char(std::string& s, char from, char to, bool both_cases) { substitute_char(s, from, to, both_cases); }

void replace_char(std::wstring& s, wchar_t from, wchar_t to, bool both_cases)
{
    if (from == to) return;
    substitute_char_wide(s, from, to, both_cases);
}

// A Windows long path ("\\?\C:\...") loses its "\\?\"; the shadow copy
// device form keeps it, and a bare prefix of 46 characters or less is no path.
void strip_long_path_prefix(std::wstring& path)
{
    if (path.size() < 5 || path[0] != L'\\' || path[1] != L'\\') return;
    if (path.size() <= 46) {
        path.clear();
        return;
    }
    std::wstring lower = path;
    if (to_lower_wide(lower).compare(4, 6, L"global") == 0) return;
    path.erase(0, 4);
}

void strip_trailing_separators(std::wstring& path) { strip_trailing_slashes(path); }

bool parse_filter(std::vector<filter_entry>& out, std::string& text)
{
    out.clear();
    std::vector<std::wstring> const tokens = filter_tokens(utf8_to_wide(to_lower_narrow(text)));
    out.resize(tokens.size());
    for (std::size_t i = 0; i < tokens.size(); ++i) {
        if (tokens[i] == L"*") {
            out.assign(1, filter_entry{});
            out[0].match_all = true;
            out[0].text = out[0].core = L"*";
            break;
        }
        filter_entry& entry = out[i];
        entry.text = entry.core = tokens[i];
        parse_stream_part(out, entry);
        if (entry.core == L"*") {
            entry.match_all = true;
            continue;
        }
        remove_stars(entry.core, entry.star_front, entry.star_back);
        entry.is_path = !entry.core.empty() && entry.core.front() == L'/';
    }
    return !out.empty();
}

bool matches_filter(time_range const& range, std::wstring const& path, std::vector<filter_entry> const& filter,
                    file_info* info, bool /*stream_mode*/)
{
    if (path.empty()) return false;
    if (info && !within_time_range(range, path, *info)) return false;
    if (filter.empty() || (filter.size() == 1 && filter[0].match_all)) return true;
    std::wstring dir;
    std::wstring name;
    split_path(path, dir, name);
    to_lower_wide(name);
    bool dir_lowered = false;
    for (filter_entry const& entry : filter) {
        if (entry.is_path) {
            if (!dir_lowered) to_lower_wide(dir);
            dir_lowered = true;
            if (path_entry_matches(entry, dir)) return true;
        }
        if (name_entry_matches(entry, name, path)) return true;
    }
    return false;
}

bool matches_filter(time_range const& range, std::string const& path, std::vector<filter_entry> const& filter,
                    file_info* info, bool stream_mode)
{
    if (path.empty()) return false;
    if (filter.empty()) return true;
    return matches_filter(range, utf8_to_wide(path), filter, info, stream_mode);
}

bool join_arguments(std::string& out, std::vector<std::string> const& args, char quote)
{
    out.clear();
    for (std::size_t i = 0; i < args.size(); ++i) {
        if (i > 0) out += ' ';
        bool const wrap = args[i].find(' ') != std::string::npos;
        if (wrap) out += quote;
        out += args[i];
        if (wrap) out += quote;
    }
    return true;
}
