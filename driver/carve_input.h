#pragma once
// -carve FILE: Prefetch files found by their signatures anywhere in a file (a
// page file, a memory image, a dump of free space, a raw disk), each reported
// as a file of a batch under the name FILE:carved@OFFSET.
#include <cstdint>
#include <functional>
#include <ostream>
#include <string>

#include "prefetch/carve_scan.h"

class image_source;
struct volume_place;
class kito_user_context;

using carve_hit_handler = std::function<void(carve_hit&)>;

// Hands every hit of the file at path to `each`, in offset order, and adds the
// rejected candidates to `rejected`. False, with a message on standard error,
// for a path that cannot be opened, a folder, an empty file or a failed read.
bool carve_file(std::string const& path, carve_hit_handler const& each, std::uint64_t& rejected);
// Hands every hit in the free clusters of the image's NTFS volumes to `each`,
// with its volume, offsets counted from the start of the image. A stretch
// that cannot be read is said on standard error and passed over.
void carve_unallocated(image_source& source, std::string const& image_path,
                       std::function<void(carve_hit&, volume_place const&)> const& each, std::uint64_t& rejected);
// The name of a hit: what was scanned, then where in it, in bytes.
std::string carved_name(std::string const& scanned, std::uint64_t offset);
// Hands the hit's bytes to the decoder, with its span as the entry's place.
bool decode_carved_hit(carve_hit& hit, kito_user_context& context);
// Writes the hit into the folder as carved@OFFSET.pf: a container unpacked,
// a plain file as it stands. False when it cannot be unpacked or written, or
// when that name is the scanned file itself.
bool write_carved_hit(carve_hit const& hit, std::string const& scanned, std::string const& folder);

// The report of every hit, as for the files of a batch: the outcome of the
// last one, false when the file cannot be scanned or holds none.
bool process_carve(kito_user_context& context, std::ostream& out);
// -unallocated: the report of every hit in the free clusters of the image
// opened as `source`, named IMAGE@START_SECTOR:carved@OFFSET; `outcome` is that
// of the last file before them, and the result that of the last one reported.
bool process_unallocated(kito_user_context& context, std::ostream& out, image_source& source, bool separator,
                         bool outcome);
// -decompress_to: every hit into the target folder; 0 when one was written.
int decompress_carve(kito_user_context& context);
