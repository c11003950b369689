#include "driver/batch_input.h"

#include <algorithm>
#include <functional>
#include <mutex>
#include <thread>

#include "driver/cmd_params.h"
#include "driver/foundation_adapters.h"
#include "driver/image_input.h"
#include "driver/kito_user_context.h"
#include "driver/output_entry.h"
#include "foundation/ordered_work.h"
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

// One input of a batch, after the filter: the name its report shows, and how
// its bytes are read.
struct batch_input {
    std::string path;
    input_reader read;
};

bool read_named_file(std::string const& path, decode_buffers& buffers, prefetch_entry& entry, std::string& label)
{
    return load_prefetch_file(path, buffers, entry, label);
}

// Gives the next input of a batch; false at its end.
using input_source = std::function<bool(batch_input&)>;

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

// The loop of every batch: inputs read and decoded on the threads that
// -threads asks for, reported in input order by this thread, with what one
// thread alone would write, to the byte. The outcome is the last file's.
bool run_batch(kito_user_context& context, std::ostream& out, input_source const& next)
{
    bool const separator = separator_used(context);
    if (separator) out << batch_separator;
    unsigned const threads = decoding_threads(context);
    std::vector<decode_buffers> buffers(threads);
    for (decode_buffers& b : buffers) b.wants = wants_of(context);
    struct item {
        batch_input input;
        decoded_input result;
    };
    bool outcome = false;
    run_in_order<item>(
        threads, files_per_thread * threads, [&](item& i) { return next(i.input); },
        [&](item& i, unsigned worker) { decode_input(i.result, i.input.path, i.input.read, buffers[worker]); },
        [&](item& i) {
            context.m_file_path = i.input.path;
            std::string folder;
            if (!split_path(context.m_file_path, folder, context.m_file_base_name))
                context.m_file_base_name = context.m_file_path;
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
    vlmportdir::stdin_stream_ex source(&context);
    if (!begin_batch_source(source, context)) return false;
    file_info info;
    std::string name;
    return run_batch(context, out, [&](batch_input& input) {
        while (source.next_file(name, /*trim=*/true)) {
            if (name.empty()) continue;
            // The filter sees the name as it came, before %NAME% is expanded.
            info = file_info{};
            if (!matches_filter(context, name, context.m_filter_list, &info, /*stream_mode=*/false)) continue;
            input = {expand_path_variables(name, /*allow_shadow_copy=*/true), read_named_file};
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
    return run_batch(context, out, [&](batch_input& input) {
        if (at == paths.size()) return false;
        input = {expand_path_variables(paths[at++], /*allow_shadow_copy=*/true), read_named_file};
        return true;
    });
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
    if (!source.open(context.m_image_path)) return false;
    // The image library reads for one thread at a time; decoding goes on beside it.
    std::mutex image_lock;
    std::vector<image_file> const& files = source.files();
    std::size_t at = 0;
    return run_batch(context, out, [&](batch_input& input) {
        while (at < files.size() && !image_file_wanted(context, files[at])) ++at;
        if (at == files.size()) return false;
        image_file const& file = files[at++];
        input.path = file.display_name;
        input.read = [&source, &file, &image_lock](std::string const&, decode_buffers& buffers, prefetch_entry& entry,
                                                   std::string& label) {
            {
                std::lock_guard<std::mutex> const guard(image_lock);
                if (!read_image_file(source, file, buffers, entry)) return false;
            }
            return decode_input_bytes(buffers, entry, label);
        };
        return true;
    });
}
