#pragma once
// Paths as the tool meets them, often written the Windows way: splitting,
// %NAME% expansion, and the -filter / -filter_sig / time-range test.
#include <cstdint>
#include <string>
#include <vector>

// One end of the batch time range (-cmd_start_time, -cmd_stop_time).
struct time_bound {
    bool valid = false;
    std::uint64_t filetime = 0;
    std::uint32_t unix_seconds = 0;
};

// The two ends the filter compares a file's modified time with. A bound whose
// `valid` flag is clear is no limit.
struct time_range {
    time_bound start;
    time_bound stop;
};

// One alternative of a -filter (or a -filter_sig record).
struct filter_entry {
    std::uint32_t filter_path_length = 0;
    std::wstring filter_path;
    std::wstring text;
    std::wstring core;
    std::wstring stream_core;
    std::vector<std::uint8_t> signature;
    std::uint64_t signature_offset = 0;
    bool is_path = false;
    bool match_all = false;
    bool star_front = false;
    bool star_back = false;
    bool has_stream = false;
    bool stream_match_all = false;
    bool stream_star_front = false;
    bool stream_star_back = false;
};

// What stat says of one file; `modified` 0 means not yet filled.
struct file_info {
    std::uint64_t inode = 0;
    std::uint64_t size = 0;
    std::uint64_t modified = 0;
    std::uint64_t spare_time = 0;
    std::uint64_t changed = 0;
    std::uint64_t accessed = 0;
    std::uint32_t mode = 0;
    std::uint32_t time_kind = 0;
};

// Needs a path; gives the folder and the name, "\" winning over "/". A
// separator only at index 0 does not split ("/etc" is a name in "."), and a
// trailing ".." moves into the folder. Fails, both emptied, on an empty path.
bool split_path(std::string const& path, std::string& dir, std::string& name);
bool split_path(std::wstring const& path, std::wstring& dir, std::wstring& name);
// split_path, then the name cut at its last "."; no "." gives an empty `ext`.
// Fails as split_path does (a null path counts as empty).
bool split_name_extension(char const* path, std::string& dir, std::string& base, std::string& ext);
// Gives the path with each %NAME% known to the environment replaced (values
// may nest), and %VSS% as the shadow copy prefix when allowed. Never fails:
// unknown names, and any path over 512 characters, stay as written.
std::string expand_path_variables(std::string const& path, bool allow_shadow_copy);
// Gives "\\?\GLOBALROOT\Device\HarddiskVolumeShadowCopy", without its
// first part unless `with_root`, lower-cased if `lower`.
std::string shadow_copy_prefix(bool lower, bool with_root);
// Every `from` (and its other case with `both_cases`) becomes `to`.
void replace_char(std::string& s, char from, char to, bool both_cases);
void replace_char(std::wstring& s, wchar_t from, wchar_t to, bool both_cases);
// "\\?\C:\x" loses its "\\?\"; a shadow copy device path keeps it, and a
// path that begins "\\" and has 46 characters or less becomes empty.
void strip_long_path_prefix(std::wstring& path);
// Removes every "/" and "\" at the end.
void strip_trailing_separators(std::wstring& path);
// Needs the -filter text, which it lower-cases in place; gives one entry per
// "|" or "," token (a "," makes "|" plain), or one match-all entry for a "*"
// token. Fails only when no entry results.
bool parse_filter(std::vector<filter_entry>& out, std::string& text);
// Needs a path, the filter and the time range; gives whether the file passes.
// The range is looked at only with `info` (filled by stat when `modified` is
// 0): a file that stat cannot see, or a time outside the range, fails. An
// empty path fails; an empty filter passes. `stream_mode` is not used here.
bool matches_filter(time_range const& range, std::wstring const& path, std::vector<filter_entry> const& filter,
                    file_info* info, bool stream_mode);
// Narrow form: an empty name is refused and an empty filter passes at once,
// before the time range is looked at.
bool matches_filter(time_range const& range, std::string const& path, std::vector<filter_entry> const& filter,
                    file_info* info, bool stream_mode);
// Gives the arguments joined by one blank, each one that holds a blank
// wrapped in `quote`. Always true.
bool join_arguments(std::string& out, std::vector<std::string> const& args, char quote);
