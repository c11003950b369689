#include "driver/batch_loop.h"

#include <algorithm>
#include <functional>
#include <mutex>
#include <thread>

#include "driver/cmd_params.h"
#include "driver/foundation_adapters.h"
#include "driver/kito_user_context.h"
#include "driver/output_entry.h"
#include "evidence/file_source.h"
#include "evidence/image_volumes.h"
#include "foundation/ordered_work.h"
#include "foundation/vlm_portable_dir.h"
#include "foundation/vlm_time.h"
#include "prefetch/decode_chain.h"

bool begin_batch_source(vlmportdir::stdin_stream_ex& source, cmd_params const& options)
{
    if (options.m_pipe_input) {
        source.begin_pipe();
        return true;
    }
    return source.begin_enum(options.m_enum_dir, options.m_num_subdirs, options.m_filter_list);
}

namespace {

char const batch_separator[] = " =================================================== \n\n";

// Only the text report is framed by separator lines, and only in its verbose form.
bool separator_used(cmd_params const& options)
{
    return !options.m_fmt_csv && !options.m_fmt_timeline && !options.m_fmt_bodyfile && !options.m_fmt_json &&
           !options.m_fmt_html && options.m_verbose;
}

// Gives the next item of a batch; false at its end.
using item_source = std::function<bool(evidence_item&)>;

// Files in flight per decoding thread: enough that a slow file holds up no
// thread, few enough that memory stays that of a handful of files.
constexpr std::size_t files_per_thread = 2;

// -threads, or one a core; never more than max_threads.
constexpr unsigned max_threads = 256;
unsigned decoding_threads(cmd_params const& options)
{
    if (options.m_thread_count != 0) return std::min(options.m_thread_count, max_threads);
    return std::clamp(std::thread::hardware_concurrency(), 1u, max_threads);
}

// The loop of every batch: items read and decoded on the threads that
// -threads asks for, reported in input order by this thread, with what one
// thread alone would write, to the byte. The outcome is the last file's.
bool run_batch(kito_user_context& context, std::ostream& out, item_source const& next)
{
    bool const separator = separator_used(context);
    if (separator) out << batch_separator;
    unsigned const threads = decoding_threads(context);
    std::vector<decode_buffers> buffers(threads);
    for (decode_buffers& b : buffers) b.wants = wants_of(context);
    struct work_item {
        evidence_item input;
        decoded_input result;
    };
    input_reader const read = [](evidence_item const& item, decode_buffers& b, prefetch_entry& entry,
                                 std::string& label) {
        return item.read(b, entry) && decode_input_bytes(b, entry, label);
    };
    bool outcome = false;
    run_in_order<work_item>(
        threads, files_per_thread * threads, [&](work_item& i) { return next(i.input); },
        [&](work_item& i, unsigned worker) { decode_input(i.result, i.input, read, buffers[worker]); },
        [&](work_item& i) {
            context.m_file_path = i.input.display_name;
            context.m_file_base_name = i.input.file_base_name;
            context.diag_line(context.m_file_path);
            outcome = report_decoded_input(out, context, i.result);
            // A failed file leaves no separator: its messages stand on standard error.
            if (separator && outcome) out << batch_separator;
        });
    return outcome;
}

} // namespace

bool process_batch(kito_user_context& context, std::ostream& out)
{
    time_range const range{context.m_start_bound, context.m_stop_bound};
    vlmportdir::stdin_stream_ex source(&range);
    if (!begin_batch_source(source, context)) return false;
    file_info info;
    std::string name;
    return run_batch(context, out, [&](evidence_item& item) {
        while (source.next_file(name, /*trim=*/true)) {
            if (name.empty()) continue;
            // The filter sees the name as it came, before %NAME% is expanded.
            info = file_info{};
            if (!matches_filter(context, name, context.m_filter_list, &info, /*stream_mode=*/false)) continue;
            item = file_evidence(expand_path_variables(name, /*allow_shadow_copy=*/true));
            return true;
        }
        return false;
    });
}

bool process_volume_scan(kito_user_context& context, std::ostream& out)
{
    std::string folder =
        shadow_copy_prefix(/*lower=*/false, /*with_root=*/true) + context.m_volume_root + "\\Windows\\Prefetch";
    std::vector<std::string> paths;
    vlmportdir::list_paths(folder.c_str(), "*.pf", paths);
    if (paths.empty()) return false;
    std::size_t at = 0;
    return run_batch(context, out, [&](evidence_item& item) {
        if (at == paths.size()) return false;
        item = file_evidence(expand_path_variables(paths[at++], /*allow_shadow_copy=*/true));
        return true;
    });
}

bool image_item_wanted(kito_user_context const& context, evidence_item const& item)
{
    std::vector<filter_entry> filters = context.m_filter_list;
    std::string default_filter = "*.pf";
    if (filters.empty()) parse_filter(filters, default_filter);
    // The time range reads the NTFS modified time, not a stat of the name.
    file_info info;
    info.modified = item.recorded_modified;
    info.time_kind = vlm::filetime;
    return matches_filter(context, item.display_name, filters, &info, /*stream_mode=*/false);
}

bool process_image(kito_user_context& context, std::ostream& out)
{
    image_volumes source;
    if (!source.open(context.m_image_path)) return false;
    // The image library reads for one thread at a time; decoding goes on beside it.
    std::mutex image_lock;
    std::vector<evidence_item> const& items = source.items();
    std::size_t at = 0;
    return run_batch(context, out, [&](evidence_item& item) {
        while (at < items.size() && !image_item_wanted(context, items[at])) ++at;
        if (at == items.size()) return false;
        item = items[at++];
        item.read = [&image_lock, read = item.read](decode_buffers& buffers, prefetch_entry& entry) {
            std::lock_guard<std::mutex> const guard(image_lock);
            return read(buffers, entry);
        };
        return true;
    });
}
