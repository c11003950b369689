#pragma once
// Prefetch files carved by their signatures from any file (a page file, a
// memory image, a dump of free space, a raw disk) or from the free clusters
// of an image's NTFS volumes; each hit handed on as an evidence item named
// SCANNED:carved@OFFSET, OFFSET in bytes from the start of what was scanned.
#include <cstdint>
#include <functional>
#include <string>

#include "evidence/evidence_item.h"
#include "evidence/tsk_bridge.h"
#include "prefetch/carve_scan.h"

// Hands every hit of the file at path to `each`, in offset order, and adds the
// rejected candidates to `rejected`. False, with a message on standard error,
// for a path that cannot be opened, a folder, an empty file or a failed read.
bool carve_file(std::string const& path, std::function<void(carve_hit&)> const& each, std::uint64_t& rejected);
// Hands every hit in the free clusters of the image's NTFS volumes to `each`,
// with its volume, offsets counted from the start of the image. A stretch
// that cannot be read is said on standard error and passed over.
void carve_unallocated(disk_image const& image, std::string const& image_path,
                       std::function<void(carve_hit&, ntfs_volume_place const&)> const& each, std::uint64_t& rejected);
// The name of a hit: what was scanned, then where in it, in bytes.
std::string carved_name(std::string const& scanned, std::uint64_t offset);
// The hit as an item of a batch; its bytes move into the item. `place` is
// the volume's place for a hit in an image's free clusters, else empty.
evidence_item carved_item(carve_hit& hit, std::string const& name, image_location place = {});
// Writes the hit into the folder as carved@OFFSET.pf: a container unpacked,
// a plain file as it stands. False when it cannot be unpacked or written, or
// when that name is the scanned file itself.
bool write_carved_hit(carve_hit const& hit, std::string const& scanned, std::string const& folder);
