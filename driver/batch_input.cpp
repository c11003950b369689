#include "driver/batch_input.h"

#include "driver/carve_input.h"
#include "driver/cmd_params.h"
#include "driver/foundation_adapters.h"
#include "driver/image_input.h"
#include "driver/kito_user_context.h"
#include "driver/output_entry.h"
#include "foundation/vlm_portable_dir.h"
#include "foundation/vlm_string.h"
#include "foundation/vlm_time.h"
#include "prefetch/decode_chain.h"

namespace vlmportdir {

stdin_stream_ex::stdin_stream_ex(cmd_params* context) : uni::stdin_stream(/*keep_raw=*/false)
{
    reset();
    m_context = context;
}

void stdin_stream_ex::reset()
{
    m_pending_dirs.clear();
    m_found_files.clear();
    m_filters.clear();
    m_depth_limit = 1;
    m_walking = false;
    m_context = nullptr;
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

// The walk's own filter test, without time bounds unless a context was given.
// The batch loop tests every name again, with them.
bool stdin_stream_ex::walk_accepts(std::wstring const& path) const
{
    if (m_context == nullptr) return matches_filter(time_range{}, path, m_filters, nullptr, /*stream_mode=*/false);
    file_info info;
    return matches_filter(*m_context, path, m_filters, &info, /*stream_mode=*/false);
}

} // namespace vlmportdir

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

bool process_input(kito_user_context& context, std::ostream& out, std::string const& path, bool separator,
                   input_loader const& load)
{
    reset_decoded_entry(context);
    context.m_file_path = path;
    std::string folder;
    if (!split_path(context.m_file_path, folder, context.m_file_base_name))
        context.m_file_base_name = context.m_file_path;
    context.diag_line(context.m_file_path);
    bool outcome = output_prefetch_entry(out, context, load);
    // A failed file leaves no separator: its messages stand on standard error.
    if (separator && outcome) out << batch_separator;
    return outcome;
}

bool begin_batch_output(cmd_params const& options, std::ostream& out)
{
    bool const separator = separator_used(options);
    if (separator) out << batch_separator;
    return separator;
}

namespace {

bool process_named_file(kito_user_context& context, std::ostream& out, std::string const& name, bool separator)
{
    return process_input(context, out, expand_path_variables(name, /*allow_shadow_copy=*/true), separator,
                         [](kito_user_context& c) { return load_prefetch_file(c); });
}

} // namespace

bool process_batch(kito_user_context& context, std::ostream& out)
{
    vlmportdir::stdin_stream_ex source(&context);
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

bool image_file_wanted(kito_user_context const& context, image_file const& file)
{
    std::vector<filter_entry> filters = context.m_filter_list;
    std::string default_filter = "*.pf";
    if (filters.empty()) parse_filter(filters, default_filter);
    // The time range reads the NTFS modified time, not a stat of the name.
    file_info info;
    info.modified = file.modified;
    info.time_kind = vlm::filetime;
    return matches_filter(context, file.display_name, filters, &info, /*stream_mode=*/false);
}

bool process_image(kito_user_context& context, std::ostream& out)
{
    image_source source;
    // Free clusters are worth scanning also where the Prefetch folder is gone.
    if (!source.open(context.m_image_path, /*folder_needed=*/!context.m_unallocated)) return false;
    bool const separator = begin_batch_output(context, out);
    bool outcome = false;
    for (image_file const& file : source.files()) {
        if (!image_file_wanted(context, file)) continue;
        outcome = process_input(context, out, file.display_name, separator, [&](kito_user_context& c) {
            return read_image_file(source, file, c.m_buffers, c.m_entry) &&
                   decode_input_bytes(c.m_buffers, c.m_entry, c.m_version_label);
        });
    }
    return context.m_unallocated ? process_unallocated(context, out, source, separator, outcome) : outcome;
}
