#pragma once
// One place that yields the bytes of a Prefetch file: a file of this system,
// a file of an image volume, of a shadow copy, a deleted entry. Every source
// hands the batch loop this one value, so that the loop and the writers never
// ask where a file came from; only the provenance in the entry differs.
#include <cstdint>
#include <functional>
#include <string>

#include "prefetch/decode_buffers.h"
#include "prefetch/prefetch_entry.h"

// Reads the place's bytes into buffers.file_bytes and its file-system facts
// and provenance into the entry. False, with entry.failure set and a message
// on standard error, when they can't be read.
using evidence_reader = std::function<bool(decode_buffers&, prefetch_entry&)>;

struct evidence_item {
    std::string display_name;   // the name every report shows
    std::string file_base_name; // its last part
    image_location image;       // where in an image; empty for a file of this system
    // The modified time the volume recorded (FILETIME), which the time range
    // reads; 0 for a file of this system, whose times are read by its name.
    std::uint64_t recorded_modified = 0;
    evidence_reader read;
};

// The last part of a display name, as the reports name the file.
std::string base_name_of(std::string const& display_name);
