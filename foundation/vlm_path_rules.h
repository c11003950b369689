#pragma once
// Paths as the tool meets them, often written the Windows way: splitting,
// %NAME% expansion, and the -filter / -filter_sig / time-range test.
#include <cstdint>
#include <string>
#include <vector>

class cmd_params;

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

bool split_path(std::string const& path, std::string& dir, std::string& name);
bool split_path(std::wstring const& path, std::wstring& dir, std::wstring& name);
bool split_name_extension(char const* path, std::string& dir, std::string& base, std::string& ext);
std::string expand_path_variables(std::string const& path, bool allow_shadow_copy);
std::string shadow_copy_prefix(bool lower, bool with_root);
void replace_char(std::string& s, char from, char to, bool both_cases);
void replace_char(std::wstring& s, wchar_t from, wchar_t to, bool both_cases);
void strip_long_path_prefix(std::wstring& path);
void strip_trailing_separators(std::wstring& path);
bool parse_filter(std::vector<filter_entry>& out, std::string& text);
bool matches_filter(cmd_params const& options, std::wstring const& path, std::vector<filter_entry> const& filter,
                    file_info* info, bool stream_mode);
// Narrow form: an empty name is refused and an empty filter passes at once,
// before the time range is looked at.
bool matches_filter(cmd_params const& options, std::string const& path, std::vector<filter_entry> const& filter,
                    file_info* info, bool stream_mode);
bool join_arguments(std::string& out, std::vector<std::string> const& args, char quote);
