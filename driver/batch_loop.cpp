#include "driver/batch_loop.h"

#include <algorithm>
#include <functional>
#include <mutex>
#include <thread>
#include <unordered_map>

#include "driver/carve_input.h"
#include "driver/cmd_params.h"
#include "driver/content_index.h"
#include "driver/foundation_adapters.h"
#include "driver/kito_user_context.h"
#include "driver/output_entry.h"
#include "evidence/file_source.h"
#include "evidence/image_volumes.h"
#include "foundation/ordered_work.h"
#include "foundation/sha256.h"
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

// Files in flight per decoding thread: enough that a helper still has files
// to work on while the calling thread works on one and then hands several
// on, few enough that memory stays that of a handful of files. With two a
// thread a batch of small containers took a fifth longer.
constexpr std::size_t files_per_thread = 4;

// -threads, or one a core; never more than max_threads.
constexpr unsigned max_threads = 256;
unsigned decoding_threads(cmd_params const& options)
{
    if (options.m_thread_count != 0) return std::min(options.m_thread_count, max_threads);
    return std::clamp(std::thread::hardware_concurrency(), 1u, max_threads);
}

bool read_and_decode(evidence_item const& item, decode_buffers& buffers, prefetch_entry& entry, std::string& label)
{
    return item.read(buffers, entry) && decode_input_bytes(buffers, entry, label);
}

// The report of one decoded item over the context, followed by the separator
// where the form has one.
bool report_item(kito_user_context& context, std::ostream& out, evidence_item const& item, decoded_input& input,
                 bool separator, decoded_note const& note)
{
    context.m_file_path = item.display_name;
    context.m_file_base_name = item.file_base_name;
    context.diag_line(context.m_file_path);
    if (note && input.decoded && input.entry.failure == decode_failure::none) note(item, input.entry);
    bool const outcome = report_decoded_input(out, context, input);
    // A failed file leaves no separator: its messages stand on standard error.
    if (separator && outcome) out << batch_separator;
    return outcome;
}

// The loop of every batch: items read and decoded on the threads that
// -threads asks for, reported in input order by this thread, with what one
// thread alone would write, to the byte. The outcome is the last file's.
bool run_batch(kito_user_context& context, std::ostream& out, item_source const& next, bool separator,
               decoded_note const& note = {})
{
    unsigned const threads = decoding_threads(context);
    std::vector<decode_buffers> buffers(threads);
    for (decode_buffers& b : buffers) b.wants = wants_of(context);
    struct work_item {
        evidence_item input;
        decoded_input result;
    };
    bool outcome = false;
    run_in_order<work_item>(
        threads, files_per_thread * threads, [&](work_item& i) { return next(i.input); },
        [&](work_item& i, unsigned worker) { decode_input(i.result, i.input, read_and_decode, buffers[worker]); },
        [&](work_item& i) { outcome = report_item(context, out, i.input, i.result, separator, note); });
    return outcome;
}

} // namespace

bool begin_batch_output(cmd_params const& options, std::ostream& out)
{
    bool const separator = separator_used(options);
    if (separator) out << batch_separator;
    return separator;
}

bool process_item(kito_user_context& context, std::ostream& out, evidence_item const& item, bool separator,
                  decoded_note const& note)
{
    context.m_buffers.wants = wants_of(context);
    decoded_input input;
    decode_input(input, item, read_and_decode, context.m_buffers);
    return report_item(context, out, item, input, separator, note);
}

bool process_batch(kito_user_context& context, std::ostream& out)
{
    time_range const range{context.m_start_bound, context.m_stop_bound};
    vlmportdir::stdin_stream_ex source(&range);
    if (!begin_batch_source(source, context)) return false;
    bool const separator = begin_batch_output(context, out);
    file_info info;
    std::string name;
    return run_batch(
        context, out,
        [&](evidence_item& item) {
            while (source.next_file(name, /*trim=*/true)) {
                if (name.empty()) continue;
                // The filter sees the name as it came, before %NAME% is expanded.
                info = file_info{};
                if (!matches_filter(context, name, context.m_filter_list, &info, /*stream_mode=*/false)) continue;
                item = file_evidence(expand_path_variables(name, /*allow_shadow_copy=*/true));
                return true;
            }
            return false;
        },
        separator);
}

bool process_volume_scan(kito_user_context& context, std::ostream& out)
{
    std::string folder =
        shadow_copy_prefix(/*lower=*/false, /*with_root=*/true) + context.m_volume_root + "\\Windows\\Prefetch";
    std::vector<std::string> paths;
    vlmportdir::list_paths(folder.c_str(), "*.pf", paths);
    if (paths.empty()) return false;
    bool const separator = begin_batch_output(context, out);
    std::size_t at = 0;
    return run_batch(
        context, out,
        [&](evidence_item& item) {
            if (at == paths.size()) return false;
            item = file_evidence(expand_path_variables(paths[at++], /*allow_shadow_copy=*/true));
            return true;
        },
        separator);
}

image_reading image_reading_of(cmd_params const& options)
{
    return {options.m_image_shadow_copies, options.m_image_deleted, options.m_unallocated};
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

namespace {

// The first pass over an image: the digest of every wanted file's bytes
// that another wanted file's size matches, so that a file whose bytes come
// again later is reported once, naming the other places. Only the digests
// and names stay; the bytes are read again one at a time when reported. A
// file of a size of its own, or that can't be read whole, gets no digest and
// is compared with nothing: the reporting pass reads it as before.
content_index index_contents(std::vector<evidence_item const*> const& wanted, bool every_file)
{
    std::unordered_map<std::uint64_t, std::size_t> sizes;
    for (evidence_item const* item : wanted) ++sizes[item->recorded_size];
    content_index contents;
    decode_buffers buffers;
    for (evidence_item const* item : wanted) {
        std::uint64_t const size = item->recorded_size;
        prefetch_entry scratch;
        bool const whole =
            size > 0 && size <= read_limit && (every_file || sizes[size] > 1) && item->read(buffers, scratch);
        contents.add(whole ? sha256_hex(buffers.file_bytes) : std::string(), item->display_name);
    }
    return contents;
}

void write_histories(kito_user_context& context, std::ostream& out)
{
    for (program_history const& program : context.m_history.take_histories()) {
        if (context.m_fmt_json) write_json_history(out, program, context);
        else write_html_history(out, program, context);
    }
}

} // namespace

bool process_image(kito_user_context& context, std::ostream& out)
{
    image_volumes source;
    if (!source.open(context.m_image_path, image_reading_of(context))) return false;
    std::vector<evidence_item const*> wanted;
    for (evidence_item const& item : source.items())
        if (image_item_wanted(context, item)) wanted.push_back(&item);
    // Spans carved from free clusters are compared with every file's bytes.
    content_index contents = index_contents(wanted, context.m_unallocated);
    bool const separator = begin_batch_output(context, out);
    // Histories go with the forms that show them.
    bool const histories = context.m_fmt_json || context.m_fmt_html;
    decoded_note const note = [&](evidence_item const& item, prefetch_entry const& entry) {
        if (histories) context.m_history.add(entry, item.display_name);
    };
    // The image library reads for one thread at a time; decoding goes on beside it.
    std::mutex image_lock;
    std::size_t at = 0;
    bool outcome = run_batch(
        context, out,
        [&](evidence_item& item) {
            for (; at < wanted.size(); ++at) {
                if (contents.duplicate(at)) {
                    ++context.m_duplicates;
                    continue;
                }
                item = *wanted[at];
                item.read = [&image_lock, read = item.read, others = contents.same_bytes_at(at),
                             digest = contents.digest(at)](decode_buffers& buffers, prefetch_entry& entry) {
                    entry.same_bytes_at = others;
                    // Already taken in the first pass: not taken twice.
                    if (!digest.empty()) entry.input_sha256 = digest;
                    std::lock_guard<std::mutex> const guard(image_lock);
                    return read(buffers, entry);
                };
                ++at;
                return true;
            }
            return false;
        },
        separator, note);
    if (context.m_unallocated) outcome = process_unallocated(context, out, source, separator, outcome, contents, note);
    write_histories(context, out);
    return outcome;
}
