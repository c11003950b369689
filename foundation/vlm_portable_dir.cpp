#include "foundation/vlm_portable_dir.h"

#include <dirent.h>
#include <memory>
#include <sys/stat.h>

#include "foundation/vlm_path_rules.h"
#include "foundation/vlm_string.h"

namespace vlmportdir {

namespace {

struct dir_closer {
    void operator()(DIR* dir) const { ::closedir(dir); }
};

bool is_long_form(std::string const& path) { return path.size() > 4 && path.compare(0, 4, "\\\\?\\") == 0; }

std::string star_marker(bool use_slash) { return use_slash ? "/*/" : "\\*\\"; }

// Occurrences of the marker, overlapping ones included ("/*/*/" holds two).
std::size_t count_markers(std::string const& path, std::string const& marker)
{
    std::size_t count = 0;
    for (std::size_t at = path.find(marker); at != std::string::npos; at = path.find(marker, at + 1)) ++count;
    return count;
}

// A pattern part of "*" matches anything; any other must equal the whole part.
bool part_matches(std::string const& pattern_part, std::string entry_part)
{
    return pattern_part == "*" || pattern_part == to_lower_narrow(entry_part);
}

} // namespace

bool list_directory(std::string const& dir, std::vector<dir_entry>& out, std::uint32_t depth, bool dirs_only,
                    bool use_slash)
{
    std::unique_ptr<DIR, dir_closer> handle(::opendir(dir.c_str()));
    if (!handle) return false;
    std::size_t const before = out.size();
    char const separator = use_slash ? '/' : '\\';
    // One record for the whole pass: an entry whose lstat fails keeps the mode
    // of the entry before it, and the first such entry counts as a file.
    struct stat info {};
    while (dirent* item = ::readdir(handle.get())) {
        std::string name = item->d_name;
        if (name == "." || name == "..") continue;
        std::string full = dir + name;
        ::lstat(full.c_str(), &info);
        if (S_ISDIR(info.st_mode)) {
            full += separator;
            out.push_back({full, std::string(), true, is_long_form(full), depth + 1});
        } else if (!dirs_only) {
            bool long_form = is_long_form(full);
            out.push_back({std::move(full), std::move(name), false, long_form, depth});
        }
    }
    return out.size() > before;
}

bool expand_star_directories(std::vector<std::string>& paths, bool use_slash)
{
    std::string const marker = star_marker(use_slash);
    bool changed = false;
    std::size_t const count = paths.size();
    for (std::size_t i = 0; i < count; ++i) {
        std::size_t at = paths[i].find(marker);
        if (paths[i].empty() || at == std::string::npos) continue;
        std::string prefix = paths[i].substr(0, at + 1);
        std::string tail = paths[i].substr(at + marker.size());
        std::vector<dir_entry> found;
        list_directory(prefix, found, 0, /*dirs_only=*/true, use_slash);
        // A star over nothing empties the path; that too is a change.
        paths[i] = found.empty() ? std::string() : found[0].path + tail;
        for (std::size_t k = 1; k < found.size(); ++k) paths.push_back(found[k].path + tail);
        changed = true;
    }
    return changed;
}

void list_entries(std::string const& root, std::string const& pattern, std::vector<dir_entry>& out)
{
    out.clear();
    if (root.empty()) return;
    // The caller's separator is kept: "/" if the root holds one, else "\".
    bool const use_slash = root.find('/') != std::string::npos;
    char const separator = use_slash ? '/' : '\\';
    std::vector<std::string> paths{root};
    if (paths[0].back() != separator) paths[0] += separator;

    // One round per star component of the root. A folder that is itself named
    // "*" would otherwise expand into itself forever.
    std::size_t rounds = count_markers(paths[0], star_marker(use_slash));
    while (rounds-- > 0 && expand_star_directories(paths, use_slash)) {}

    std::vector<dir_entry> all;
    for (std::string const& path : paths) {
        if (path.empty()) continue;
        std::size_t star = path.find('*');
        list_directory(star == std::string::npos ? path : path.substr(0, star), all, 0, false, use_slash);
    }

    std::string lowered = pattern.empty() ? "*.*" : pattern;
    to_lower_narrow(lowered);
    std::string unused, pattern_name, pattern_ext;
    split_name_extension(lowered.c_str(), unused, pattern_name, pattern_ext);
    if (pattern_name.empty()) pattern_name = "*";
    if (pattern_ext.empty()) pattern_ext = "*";

    for (dir_entry& entry : all) {
        std::string name, ext;
        bool keep = entry.is_dir || !split_name_extension(entry.path.c_str(), unused, name, ext) ||
                    (part_matches(pattern_name, name) && part_matches(pattern_ext, ext));
        if (keep) out.push_back(std::move(entry));
    }
}

void list_entries_wide(std::wstring const& root, std::wstring const& pattern, std::vector<wide_dir_entry>& out)
{
    std::vector<dir_entry> narrow;
    list_entries(wide_to_utf8(root), wide_to_utf8(pattern), narrow);
    for (dir_entry const& entry : narrow) {
        out.push_back({utf8_to_wide(entry.path), utf8_to_wide(entry.name), entry.is_dir, entry.long_form, entry.depth});
    }
}

void list_paths(char const* root, char const* pattern, std::vector<std::string>& out)
{
    std::vector<dir_entry> entries;
    list_entries(root ? root : "", pattern ? pattern : "", entries);
    for (dir_entry& entry : entries) out.push_back(std::move(entry.path));
}

} // namespace vlmportdir
