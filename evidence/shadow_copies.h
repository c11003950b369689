#pragma once
// The shadow copies of one NTFS volume: each store read as an image of its
// own, its Prefetch folders listed like those of the live volume, under
// names IMAGE@START:vssN:/path. A store that can't be read is named in a
// message on standard error and passed over; the others still read.
#include <memory>
#include <string>
#include <vector>

#include "evidence/byte_range.h"
#include "evidence/tsk_bridge.h"
#include "evidence/volume_files.h"
#include "evidence/vshadow_bridge.h"

class shadow_copies {
public:
    // Reads the catalog of the volume `live` views. Says on standard error
    // when it can't be read. The number of stores found.
    std::size_t open(volume_view const& live);
    // The files of every readable store, newest store first; whether any
    // store has a Prefetch folder.
    bool list(bool deleted, std::vector<evidence_item>& items);

private:
    byte_range m_volume_bytes;
    shadow_volume m_catalog;
    std::vector<std::unique_ptr<disk_image>> m_images;
    volume_view m_live;
};
