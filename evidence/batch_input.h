#pragma once
// The names of a batch: from standard input (-pipe) or from a walk of a
// folder (-enumdir), behind one stream.
#include <cstdint>
#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "foundation/uni_stdin_stream.h"
#include "foundation/vlm_path_rules.h"

namespace vlmportdir {

class stdin_stream_ex : public uni::stdin_stream {
public:
    // `range` is the time range of the walk's own filter test; may be null.
    explicit stdin_stream_ex(time_range const* range);

    void reset();
    void begin_pipe();
    // False for an empty folder name. `depth` is the number of levels below it to read.
    bool begin_enum(std::string const& folder, std::uint32_t depth, std::vector<filter_entry> const& filters);

    // Walking, the files of a folder come out last-listed first, all of them
    // before any sub-folder, and the sub-folders depth-first from the last one.
    bool next_file(std::string& name, bool trim) override;
    bool next_file(std::wstring& name, bool trim) override;

private:
    bool walk_next(std::wstring& name);
    void read_folder(std::wstring folder, std::uint32_t depth);
    bool walk_accepts(std::wstring const& path) const;

    std::deque<std::pair<std::wstring, std::uint32_t>> m_pending_dirs;
    std::deque<std::wstring> m_found_files;
    std::uint32_t m_depth_limit = 1;
    std::vector<filter_entry> m_filters;
    bool m_walking = false;
    time_range const* m_range = nullptr;
};

} // namespace vlmportdir
