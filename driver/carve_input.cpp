#include "driver/carve_input.h"

#include <cstdio>

#include "driver/batch_input.h"
#include "driver/foundation_adapters.h"
#include "driver/kito_user_context.h"
#include "foundation/uni_fileio.h"
#include "prefetch/decode_chain.h"

bool carve_file(std::string const& path, carve_hit_handler const& each, std::uint64_t& rejected)
{
    uni::fileio file;
    if (!file.open(path, /*write=*/false, /*truncate=*/false)) {
        std::fprintf(stderr, "prob opening file %s\n", path.c_str());
        return false;
    }
    if (file.is_directory()) {
        std::fprintf(stderr, "prob reading file %s: a folder\n", path.c_str());
        return false;
    }
    carve_scanner scanner([&file](std::uint64_t offset, std::uint8_t* buffer, std::size_t count) {
        return file.read_at(buffer, count, offset);
    });
    carve_hit hit;
    while (scanner.next(hit)) each(hit);
    rejected += scanner.rejected();
    char const* const why = scanner.read_failed() ? "" : scanner.scanned() == 0 ? ": empty file" : nullptr;
    if (why != nullptr) std::fprintf(stderr, "prob reading file %s%s\n", path.c_str(), why);
    return why == nullptr;
}

std::string carved_name(std::string const& scanned, std::uint64_t offset)
{
    return scanned + ":carved@" + std::to_string(offset);
}

bool decode_carved_hit(carve_hit& hit, kito_user_context& context)
{
    prefetch_entry& entry = context.m_entry;
    entry.carved = carved_span{true, hit.offset, hit.length};
    entry.input_file_size = hit.length;
    entry.input_time_label = "Time last run";
    entry.input_time_source = "pf";
    entry.input_time_kind = 1;
    context.m_buffers.trim();
    context.m_buffers.file_bytes.swap(hit.bytes);
    return decode_input_bytes(context.m_buffers, entry, context.m_version_label);
}

bool write_carved_hit(carve_hit const& hit, std::string const& scanned, std::string const& folder)
{
    std::string const path = folder + "/carved@" + std::to_string(hit.offset) + ".pf";
    // Never onto the evidence being scanned.
    if (same_file(scanned, path)) return false;
    container_decompressor decompressor;
    std::uint32_t declared = 0;
    if (detect_container(declared, hit.bytes) == container_none) {
        uni::fileio file;
        return file.open(path, /*write=*/true, /*truncate=*/true) && file.append(hit.bytes);
    }
    if (!decompressor.decompress_container(hit.bytes)) {
        std::fprintf(stderr, "Prob decoding file %s \n", path.c_str());
        return false;
    }
    return decompressor.write_output_file(path);
}

bool process_carve(kito_user_context& context, std::ostream& out)
{
    bool const separator = begin_batch_output(context, out);
    context.m_check_tally.carving = true;
    bool outcome = false;
    bool const scanned = carve_file(
        context.m_carve_path,
        [&](carve_hit& hit) {
            std::string const name = carved_name(context.m_carve_path, hit.offset);
            if (!matches_filter(context, name, context.m_filter_list, nullptr, /*stream_mode=*/false)) return;
            outcome = process_input(context, out, name, separator,
                                    [&hit](kito_user_context& c) { return decode_carved_hit(hit, c); });
        },
        context.m_check_tally.carve_rejected);
    return scanned && outcome;
}

int decompress_carve(kito_user_context& context)
{
    make_directory(context.m_decompress_target);
    int status = -1;
    std::uint64_t rejected = 0;
    bool const scanned = carve_file(
        context.m_carve_path,
        [&](carve_hit& hit) {
            std::string const name = carved_name(context.m_carve_path, hit.offset);
            if (!matches_filter(context, name, context.m_filter_list, nullptr, /*stream_mode=*/false)) return;
            if (write_carved_hit(hit, context.m_carve_path, context.m_decompress_target)) status = 0;
        },
        rejected);
    return scanned ? status : -1;
}
