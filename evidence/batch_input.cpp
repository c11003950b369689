#include "evidence/batch_input.h"

#include "foundation/vlm_portable_dir.h"
#include "foundation/vlm_string.h"

namespace vlmportdir {

stdin_stream_ex::stdin_stream_ex(time_range const* range) : uni::stdin_stream(/*keep_raw=*/false)
{
    reset();
    m_range = range;
}

void stdin_stream_ex::reset()
{
    m_pending_dirs.clear();
    m_found_files.clear();
    m_filters.clear();
    m_depth_limit = 1;
    m_walking = false;
    m_range = nullptr;
}

void stdin_stream_ex::begin_pipe()
{
    reset();
    m_ready = m_source != nullptr;
    m_walking = false;
}

bool stdin_stream_ex::begin_enum(std::string const& folder, std::uint32_t depth,
                                 std::vector<filter_entry> const& filters)
{
    if (folder.empty()) return false;
    reset();
    m_depth_limit = depth;
    m_filters = filters;
    std::wstring root = utf8_to_wide(folder);
    strip_long_path_prefix(root);
    m_pending_dirs.emplace_back(std::move(root), 0);
    m_ready = m_walking = true;
    return true;
}

bool stdin_stream_ex::next_file(std::string& name, bool trim)
{
    if (!m_walking) return uni::stdin_stream::next_file(name, trim);
    name.clear();
    std::wstring wide;
    if (!walk_next(wide)) return false;
    name = wide_to_utf8(wide);
    return true;
}

bool stdin_stream_ex::next_file(std::wstring& name, bool trim)
{
    if (!m_walking) return uni::stdin_stream::next_file(name, trim);
    name.clear();
    return walk_next(name);
}

// Both queues work as stacks: the last file found goes first, and a folder is
// read only when no file is left.
bool stdin_stream_ex::walk_next(std::wstring& name)
{
    while (true) {
        if (!m_found_files.empty()) {
            name = std::move(m_found_files.back());
            m_found_files.pop_back();
            return true;
        }
        if (m_pending_dirs.empty()) return false;
        auto [folder, depth] = std::move(m_pending_dirs.back());
        m_pending_dirs.pop_back();
        if (depth <= m_depth_limit) read_folder(std::move(folder), depth);
    }
}

void stdin_stream_ex::read_folder(std::wstring folder, std::uint32_t depth)
{
    strip_long_path_prefix(folder);
    std::vector<wide_dir_entry> entries;
    list_entries_wide(folder, L"*.*", entries);
    for (wide_dir_entry& entry : entries) {
        if (entry.is_dir) {
            m_pending_dirs.emplace_back(std::move(entry.path), depth + 1);
        } else if (walk_accepts(entry.path)) {
            strip_long_path_prefix(entry.path);
            m_found_files.push_back(std::move(entry.path));
        }
    }
}

// The walk's own filter test, without time bounds unless a range was given.
// The batch loop tests every name again, with them.
bool stdin_stream_ex::walk_accepts(std::wstring const& path) const
{
    if (m_range == nullptr) return matches_filter(time_range{}, path, m_filters, nullptr, /*stream_mode=*/false);
    file_info info;
    return matches_filter(*m_range, path, m_filters, &info, /*stream_mode=*/false);
}

} // namespace vlmportdir
