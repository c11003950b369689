#pragma once
// Prefetch files read straight from a disk image (raw, split raw, E01, VMDK,
// VHD, AFF, QCOW2): the partition table, every NTFS volume on it, and the regular
// files of each volume's Windows\Prefetch folder, each handed on as an
// evidence item with its NTFS times and its place in the image; with the
// asking, also the deleted entries of those folders and the same folders in
// every shadow copy of the volume.
#include <memory>
#include <string>
#include <vector>

#include "evidence/evidence_item.h"
#include "evidence/qcow_bridge.h"
#include "evidence/shadow_copies.h"
#include "evidence/tsk_bridge.h"

struct image_reading {
    bool shadow_copies = false; // -vss
    bool deleted = false;       // -deleted
    bool unallocated = false;   // -unallocated: free clusters are scanned also where no Prefetch folder is left
};

class image_volumes {
public:
    // Opens the image and lists the Prefetch folders of all its NTFS volumes,
    // volume by volume: the live volume's files in path order (the deleted
    // ones after them), then the stores from newest to oldest, each the same
    // way. False, with a message on standard error naming what is missing,
    // when no such folder is found. The items read through this object,
    // which must outlive them.
    bool open(std::string const& path, image_reading const& reading = {});
    std::vector<evidence_item> const& items() const { return m_items; }
    // The image's NTFS volumes, for a scan of their free clusters.
    disk_image const& image() const { return m_image; }

private:
    bool open_image(std::string const& path);
    void list_volume(std::string const& path, std::size_t volume, image_reading const& reading);

    std::unique_ptr<qcow_disk> m_qcow; // outlives the image read through it
    disk_image m_image;
    std::vector<std::unique_ptr<shadow_copies>> m_shadow_copies;
    std::vector<evidence_item> m_items;
    bool m_prefetch_found = false;
};
