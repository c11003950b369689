#include "driver/batch_loop.h"

#include <unordered_map>

#include "driver/carve_input.h"
#include "driver/cmd_params.h"
#include "driver/content_index.h"
#include "driver/foundation_adapters.h"
#include "driver/kito_user_context.h"
#include "driver/output_entry.h"
#include "evidence/file_source.h"
#include "evidence/image_volumes.h"
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

} // namespace

bool begin_batch_output(cmd_params const& options, std::ostream& out)
{
    bool const separator = separator_used(options);
    if (separator) out << batch_separator;
    return separator;
}

bool process_item(kito_user_context& context, std::ostream& out, evidence_item const& item, bool separator)
{
    reset_decoded_entry(context);
    context.m_file_path = item.display_name;
    context.m_file_base_name = item.file_base_name;
    context.diag_line(context.m_file_path);
    bool outcome = output_prefetch_entry(out, context, [&item](kito_user_context& c) {
        return item.read(c.m_buffers, c.m_entry) && decode_input_bytes(c.m_buffers, c.m_entry, c.m_version_label);
    });
    // A failed file leaves no separator: its messages stand on standard error.
    if (separator && outcome) out << batch_separator;
    return outcome;
}

namespace {

bool process_named_file(kito_user_context& context, std::ostream& out, std::string const& name, bool separator)
{
    return process_item(context, out, file_evidence(expand_path_variables(name, /*allow_shadow_copy=*/true)),
                        separator);
}

} // namespace

bool process_batch(kito_user_context& context, std::ostream& out)
{
    time_range const range{context.m_start_bound, context.m_stop_bound};
    vlmportdir::stdin_stream_ex source(&range);
    if (!begin_batch_source(source, context)) return false;
    bool const separator = begin_batch_output(context, out);

    bool outcome = false;
    file_info info;
    std::string name;
    while (source.next_file(name, /*trim=*/true)) {
        if (name.empty()) continue;
        // The filter sees the name as it came, before %NAME% is expanded.
        info = file_info{};
        if (!matches_filter(context, name, context.m_filter_list, &info, /*stream_mode=*/false)) continue;
        outcome = process_named_file(context, out, name, separator);
    }
    return outcome;
}

bool process_volume_scan(kito_user_context& context, std::ostream& out)
{
    std::string folder =
        shadow_copy_prefix(/*lower=*/false, /*with_root=*/true) + context.m_volume_root + "\\Windows\\Prefetch";
    std::vector<std::string> paths;
    vlmportdir::list_paths(folder.c_str(), "*.pf", paths);
    if (paths.empty()) return false;
    bool const separator = begin_batch_output(context, out);
    bool outcome = false;
    for (std::string const& path : paths) outcome = process_named_file(context, out, path, separator);
    return outcome;
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

// Histories go with the forms that show them.
void note_version(kito_user_context& context, evidence_item const& item)
{
    if (context.m_fmt_json || context.m_fmt_html) context.m_history.add(context.m_entry, item.display_name);
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
    bool outcome = false;
    for (std::size_t i = 0; i < wanted.size(); ++i) {
        if (contents.duplicate(i)) {
            ++context.m_duplicates;
            continue;
        }
        evidence_item item = *wanted[i];
        std::vector<std::string> others = contents.same_bytes_at(i);
        std::string const& digest = contents.digest(i); // already taken: not taken twice
        evidence_reader const read = item.read;
        item.read = [&](decode_buffers& buffers, prefetch_entry& entry) {
            entry.same_bytes_at = others;
            if (!digest.empty()) entry.input_sha256 = digest;
            return read(buffers, entry);
        };
        bool const reported = process_item(context, out, item, separator);
        if (reported && context.m_entry.failure == decode_failure::none) note_version(context, item);
        outcome = reported;
    }
    if (context.m_unallocated)
        outcome = process_unallocated(context, out, source, separator, outcome, contents, [&](std::string const& name) {
            if (context.m_entry.failure == decode_failure::none && (context.m_fmt_json || context.m_fmt_html))
                context.m_history.add(context.m_entry, name);
        });
    write_histories(context, out);
    return outcome;
}
