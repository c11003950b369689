#include "driver/carve_input.h"

#include <cstdio>

#include "driver/batch_input.h"
#include "driver/foundation_adapters.h"
#include "driver/image_input.h"
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

void carve_unallocated(image_source& source, std::string const& image_path,
                       std::function<void(carve_hit&, volume_place const&)> const& each, std::uint64_t& rejected)
{
    std::vector<volume_place> const volumes = source.volume_places();
    for (std::size_t v = 0; v < volumes.size(); ++v)
        for (image_run const& run : source.unallocated_runs(v)) {
            carve_scanner scanner([&source, run](std::uint64_t offset, std::uint8_t* buffer, std::size_t count) {
                if (offset >= run.length) return std::int64_t{0};
                count = static_cast<std::size_t>(std::min<std::uint64_t>(count, run.length - offset));
                return source.read_at(run.start + offset, buffer, count);
            });
            for (carve_hit hit; scanner.next(hit);) {
                hit.offset += run.start;
                each(hit, volumes[v]);
            }
            rejected += scanner.rejected();
            if (scanner.read_failed())
                std::fprintf(stderr, "prob reading image %s at %llu\n", image_path.c_str(),
                             static_cast<unsigned long long>(run.start));
        }
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

bool process_unallocated(kito_user_context& context, std::ostream& out, image_source& source, bool separator,
                         bool outcome)
{
    context.m_check_tally.carving = true;
    std::string const& image = context.m_image_path;
    carve_unallocated(
        source, image,
        [&](carve_hit& hit, volume_place const& volume) {
            std::string const name = carved_name(image + "@" + std::to_string(volume.start_sector), hit.offset);
            if (!matches_filter(context, name, context.m_filter_list, nullptr, /*stream_mode=*/false)) return;
            outcome = process_input(context, out, name, separator, [&](kito_user_context& c) {
                image_location& place = c.m_entry.image;
                place.present = true;
                place.image_path = image;
                place.partition_offset = volume.offset;
                place.mft_entry_known = false;
                place.source = evidence_source::unallocated;
                return decode_carved_hit(hit, c);
            });
        },
        context.m_check_tally.carve_rejected);
    return outcome;
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
