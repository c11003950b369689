#include "evidence/image_volumes.h"

#include <algorithm>
#include <cstdio>

#include "evidence/ewf_segments.h"
#include "evidence/image_formats.h"

namespace {

// Says how many shadow copies a volume has, when they are not read.
void mention_shadow_copies(volume_view const& live, std::size_t count)
{
    if (count == 0) return;
    std::fprintf(stderr, "volume %s has %zu shadow cop%s; -vss reads them too\n", volume_name(live).c_str(), count,
                 count == 1 ? "y" : "ies");
}

} // namespace

bool image_volumes::open(std::string const& path, image_reading const& reading)
{
    m_items.clear();
    m_shadow_copies.clear();
    m_prefetch_found = false;
    std::string const broken = ewf_segments_problem(path);
    if (!broken.empty()) {
        std::fprintf(stderr, "prob opening image %s: %s\n", path.c_str(), broken.c_str());
        return false;
    }
    std::string const unsupported = unsupported_image_format(path);
    if (!unsupported.empty()) {
        std::fprintf(stderr, "unsupported image format %s: %s\n", path.c_str(), unsupported.c_str());
        return false;
    }
    if (!open_image(path)) return false;
    m_image.open_volumes();
    if (m_image.volumes().empty()) {
        std::fprintf(stderr, "no NTFS volume in image %s\n", path.c_str());
        return false;
    }
    for (std::size_t v = 0; v < m_image.volumes().size(); ++v) list_volume(path, v, reading);
    if (!m_prefetch_found && !reading.unallocated) {
        std::fprintf(stderr, "no Prefetch folder in image %s\n", path.c_str());
        return false;
    }
    return true;
}

// The files of every Windows\Prefetch folder of one volume, then those of
// its stores. Only names and MFT entries are kept: the bytes are read one
// file at a time.
void image_volumes::list_volume(std::string const& path, std::size_t volume, image_reading const& reading)
{
    ntfs_volume_place const place = m_image.volumes()[volume];
    volume_view live;
    live.image = &m_image;
    live.volume = volume;
    live.name_prefix = path + "@" + std::to_string(place.start_sector) + ":";
    live.location.present = true;
    live.location.image_path = path;
    live.location.partition_offset = place.offset;
    std::vector<prefetch_folder> const folders = find_prefetch_folders(live);
    m_prefetch_found = m_prefetch_found || !folders.empty();
    list_volume_files(live, folders, reading.deleted, m_items);

    auto stores = std::make_unique<shadow_copies>();
    std::size_t const count = stores->open(live);
    if (!reading.shadow_copies) return mention_shadow_copies(live, count);
    if (stores->list(reading.deleted, m_items)) m_prefetch_found = true;
    m_shadow_copies.push_back(std::move(stores));
}

// A QCOW2 disk through libqcow, any other image through The Sleuth Kit.
bool image_volumes::open_image(std::string const& path)
{
    if (is_qcow_image(path)) {
        m_qcow = std::make_unique<qcow_disk>();
        if (!m_qcow->open(path)) {
            std::fprintf(stderr, "unsupported image format %s: QCOW image that cannot be read (%s)\n", path.c_str(),
                         m_qcow->problem().c_str());
            return false;
        }
        if (m_image.open(m_qcow->bytes())) return true;
    } else if (m_image.open(path)) {
        return true;
    }
    std::fprintf(stderr, "prob opening image %s%s\n", path.c_str(), m_image.error().c_str());
    return false;
}
