#include "driver/process_files.h"

#include <cstdio>
#include <vector>

#include "driver/batch_loop.h"
#include "driver/foundation_adapters.h"
#include "driver/kito_user_context.h"
#include "driver/output_entry.h"
#include "evidence/image_volumes.h"
#include "foundation/uni_fileio.h"
#include "foundation/vlm_path_rules.h"
#include "prefetch/container_decompressor.h"

namespace {

// Whole files, whatever their size: the loader's 16 MiB limit is for decoding.
constexpr std::uint32_t whole_file = 0xFFFFFFFFu;

bool batch_asked(kito_user_context const& context)
{
    return context.m_pipe_input || context.m_enum_dir_given || context.m_image_given;
}

std::string file_name_of(std::string const& path)
{
    std::string folder, name;
    return split_path(path, folder, name) ? name : path;
}

// Reads and unpacks one container; says which step failed on standard error.
bool unpack_file(std::string const& path, container_decompressor& decompressor)
{
    std::vector<std::uint8_t> bytes;
    if (!read_whole_file(bytes, path, whole_file)) {
        std::fprintf(stderr, "Prob reading file %s\n", path.c_str());
        return false;
    }
    if (!decompressor.decompress_container(bytes)) {
        std::fprintf(stderr, "Prob decoding file %s \n", path.c_str());
        return false;
    }
    return true;
}

// The unpacked bytes never go onto the file they came from: that write is
// refused as a failed one, and the evidence stays as it was.
bool write_unpacked(container_decompressor& decompressor, std::string const& source, std::string const& target)
{
    return !same_file(source, target) && decompressor.write_output_file(target);
}

int decompress_single(kito_user_context& context, arg_list const& list)
{
    if (list.size() != 2) return -1;
    context.m_file_path = expand_path_variables(list[1], /*allow_shadow_copy=*/true);
    container_decompressor decompressor;
    if (!unpack_file(context.m_file_path, decompressor)) return -1;
    if (!write_unpacked(decompressor, context.m_file_path, context.m_decompress_target)) return -1;
    // Clear the terminal line before the word of success.
    std::fputs("\x1b[2K\r    \r", stderr);
    std::fputs("Success\n", stderr);
    std::fflush(stderr);
    return 0;
}

// Every name of the batch goes to the target folder under its own file name.
// One good write makes the run a success, whatever the files after it do.
int decompress_batch(kito_user_context& context)
{
    make_directory(context.m_decompress_target);
    time_range const range{context.m_start_bound, context.m_stop_bound};
    vlmportdir::stdin_stream_ex source(&range);
    if (!begin_batch_source(source, context)) return -1;
    int status = -1;
    std::string name;
    while (source.next_file(name, /*trim=*/true)) {
        if (name.empty()) continue;
        file_info info;
        if (!matches_filter(context, name, context.m_filter_list, &info, false)) continue;
        std::string path = expand_path_variables(name, /*allow_shadow_copy=*/true);
        container_decompressor decompressor;
        if (!unpack_file(path, decompressor)) continue;
        if (write_unpacked(decompressor, path, context.m_decompress_target + "/" + file_name_of(path))) status = 0;
    }
    return status;
}

// The Prefetch files of an image go to the target folder under their own
// names, as the files of a batch do.
int decompress_image(kito_user_context& context)
{
    make_directory(context.m_decompress_target);
    image_volumes source;
    if (!source.open(context.m_image_path)) return -1;
    int status = -1;
    decode_buffers buffers;
    for (evidence_item const& item : source.items()) {
        prefetch_entry entry;
        // A name from the image never leads out of the target folder.
        if (item.file_base_name.find('/') != std::string::npos || !image_item_wanted(context, item)) continue;
        if (!item.read(buffers, entry)) continue;
        container_decompressor decompressor;
        if (!decompressor.decompress_container(buffers.file_bytes)) {
            std::fprintf(stderr, "Prob decoding file %s \n", item.display_name.c_str());
            continue;
        }
        if (write_unpacked(decompressor, context.m_image_path, context.m_decompress_target + "/" + item.file_base_name))
            status = 0;
    }
    return status;
}

} // namespace

bool process_prefetch_files(kito_user_context& context, std::ostream& out)
{
    if (context.m_scan_volume) return process_volume_scan(context, out);
    if (context.m_image_given) return process_image(context, out);
    if (batch_asked(context)) return process_batch(context, out);
    // A single file: the option pass has just cleared the context.
    context.m_file_base_name = file_name_of(context.m_file_path);
    return output_prefetch_entry(out, context);
}

int run_decompress_mode(kito_user_context& context, arg_list const& list)
{
    if (context.m_image_given) return decompress_image(context);
    return batch_asked(context) ? decompress_batch(context) : decompress_single(context, list);
}
