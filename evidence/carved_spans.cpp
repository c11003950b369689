#include "evidence/carved_spans.h"

#include <cstdio>
#include <memory>

#include "foundation/uni_fileio.h"
#include "prefetch/container_decompressor.h"

bool carve_file(std::string const& path, std::function<void(carve_hit&)> const& each, std::uint64_t& rejected)
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

void carve_unallocated(disk_image const& image, std::string const& image_path,
                       std::function<void(carve_hit&, ntfs_volume_place const&)> const& each, std::uint64_t& rejected)
{
    for (std::size_t v = 0; v < image.volumes().size(); ++v) {
        ntfs_volume_place const& volume = image.volumes()[v];
        byte_range const bytes = image.volume_bytes(v);
        for (byte_span const& run : image.unallocated_runs(v)) {
            carve_scanner scanner([&bytes, run](std::uint64_t offset, std::uint8_t* buffer, std::size_t count) {
                if (offset >= run.length) return std::int64_t{0};
                count = static_cast<std::size_t>(std::min<std::uint64_t>(count, run.length - offset));
                return read_clamped(bytes, run.start + offset, buffer, count);
            });
            for (carve_hit hit; scanner.next(hit);) {
                hit.offset += volume.offset + run.start;
                each(hit, volume);
            }
            rejected += scanner.rejected();
            if (scanner.read_failed())
                std::fprintf(stderr, "prob reading image %s at %llu\n", image_path.c_str(),
                             static_cast<unsigned long long>(volume.offset + run.start));
        }
    }
}

std::string carved_name(std::string const& scanned, std::uint64_t offset)
{
    return scanned + ":carved@" + std::to_string(offset);
}

evidence_item carved_item(carve_hit& hit, std::string const& name, image_location place)
{
    evidence_item item;
    item.display_name = name;
    item.file_base_name = base_name_of(name);
    item.image = place;
    auto bytes = std::make_shared<std::vector<std::uint8_t>>(std::move(hit.bytes));
    carved_span const span{true, hit.offset, hit.length};
    item.read = [bytes, span, place](decode_buffers& buffers, prefetch_entry& entry) {
        entry.image = place;
        entry.carved = span;
        entry.input_file_size = span.length;
        entry.input_time_label = "Time last run";
        entry.input_time_source = "pf";
        entry.input_time_kind = 1;
        buffers.trim();
        buffers.file_bytes = *bytes;
        return true;
    };
    return item;
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
