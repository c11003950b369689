#pragma once
// Prefetch files read straight from a disk image (raw, split raw, E01, VMDK,
// VHD, AFF): the partition table, every NTFS volume on it, and the regular
// files of each volume's Windows\Prefetch folder, each handed on as an
// evidence item with its NTFS times and its place in the image.
#include <string>
#include <vector>

#include "evidence/evidence_item.h"
#include "evidence/tsk_bridge.h"

class image_volumes {
public:
    // Opens the image and lists the Prefetch folders of all its NTFS volumes,
    // volume by volume, each folder's files sorted by name. False, with a
    // message on standard error naming what is missing, when no such folder
    // is found. The items read through this object, which must outlive them.
    bool open(std::string const& path);
    std::vector<evidence_item> const& items() const { return m_items; }

private:
    void list_volume(std::string const& path, std::size_t volume);

    disk_image m_image;
    std::vector<evidence_item> m_items;
    bool m_prefetch_found = false;
};
