#pragma once
// The source of a batch: names from standard input (-pipe) or from a walk of
// a folder (-enumdir), behind one stream, and the loop that feeds them to the
// decoder one at a time.
#include <cstdint>
#include <deque>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "driver/output_entry.h"
#include "foundation/uni_stdin_stream.h"
#include "foundation/vlm_path_rules.h"

class cmd_params;
struct image_file;
class kito_user_context;

namespace vlmportdir {

class stdin_stream_ex : public uni::stdin_stream {
public:
    explicit stdin_stream_ex(cmd_params* context);

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
    cmd_params* m_context = nullptr;
};

} // namespace vlmportdir

// Writes the opening separator of a batch where the form has one; says
// whether each reported file is followed by one.
bool begin_batch_output(cmd_params const& options, std::ostream& out);
// One input of a batch, after the filter: clears the last file, reads and
// decodes it with `load`, reports it under `name`.
bool process_input(kito_user_context& context, std::ostream& out, std::string const& name, bool separator,
                   input_loader const& load);

// -pipe wins over -enumdir. False when the walk cannot start.
bool begin_batch_source(vlmportdir::stdin_stream_ex& source, cmd_params const& options);
// The batch branch: outcome of the last file that passed the filter, false if none did.
bool process_batch(kito_user_context& context, std::ostream& out);
// -image: the files of every Prefetch folder of the image that pass -filter
// ("*.pf" without one) and the time range, read and decoded one at a time.
bool process_image(kito_user_context& context, std::ostream& out);
// Whether a file listed in an image passes the filter and the time range.
bool image_file_wanted(kito_user_context const& context, image_file const& file);
// The volume scan: every "*.pf" of the volume's Prefetch folder, unfiltered.
bool process_volume_scan(kito_user_context& context, std::ostream& out);
