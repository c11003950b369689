#pragma once
// One level of a folder: the files that match a name.extension pattern and
// every sub-folder. The caller recurses; nothing here sorts, and symbolic
// links are never followed (a link to a folder is listed as a file).
#include <cstdint>
#include <string>
#include <vector>

namespace vlmportdir {

struct dir_entry {
    std::string path; // full path; a folder's ends with the separator
    std::string name; // file name; empty for a folder
    bool is_dir = false;
    bool long_form = false; // path begins with "\\?\"
    std::uint32_t depth = 0;
};

struct wide_dir_entry {
    std::wstring path;
    std::wstring name;
    bool is_dir = false;
    bool long_form = false;
    std::uint32_t depth = 0;
};

// One readdir pass over `dir`, which must end with its separator; appends to
// `out`. True when something was added.
bool list_directory(std::string const& dir, std::vector<dir_entry>& out, std::uint32_t depth, bool dirs_only,
                    bool use_slash);
// Replaces the first "/*/" (or "\*\") of each path by every folder found there.
// True when a path changed; call again until false.
bool expand_star_directories(std::vector<std::string>& paths, bool use_slash);
void list_entries(std::string const& root, std::string const& pattern, std::vector<dir_entry>& out);
void list_entries_wide(std::wstring const& root, std::wstring const& pattern, std::vector<wide_dir_entry>& out);
// The paths of list_entries, folders included, appended to `out`.
void list_paths(char const* root, char const* pattern, std::vector<std::string>& out);

} // namespace vlmportdir
