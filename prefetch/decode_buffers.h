#pragma once
// Buffers that the decoding of one file fills and the next file reuses, so
// that a batch doesn't allocate them afresh for every file: the file's bytes,
// and the decompressors of a container and of a container inside it.
#include <cstdint>
#include <vector>

#include "prefetch/container_decompressor.h"

// What the run's form shows of a file. Decoding leaves out the work of what
// is not shown: names that no line prints are never converted, and a form
// without the digest or the path-hash check does not compute them. A file is
// accepted or refused alike either way.
struct decode_wants {
    bool digest = true;             // SHA-256 of the input as read
    bool file_names = true;         // the file-name strings
    bool volume_directories = true; // each volume's directory strings
    bool path_hash = true;          // the header's path hash tried on the paths
    // The volumes and the file references. Without them, and without the
    // names, a container is decompressed only as far as the executable's
    // path: the volumes that follow the strings can be half of its output.
    bool volumes = true;
};

struct decode_buffers {
    std::vector<std::uint8_t> file_bytes;
    container_decompressor outer;
    container_decompressor inner;
    // The SHA-256 costs about a fifth of a text batch's time, and converting
    // the names a seventh of a -csv batch's.
    decode_wants wants;

    // Lets go of what one unusually large file left behind, so that a batch
    // keeps no more than a few MiB between files.
    void trim()
    {
        constexpr std::size_t kept = 0x400000;
        if (file_bytes.capacity() > kept) file_bytes = {};
        outer.trim(kept);
        inner.trim(kept);
    }
};
