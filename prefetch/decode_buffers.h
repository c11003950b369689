#pragma once
// Buffers that the decoding of one file fills and the next file reuses, so
// that a batch doesn't allocate them afresh for every file: the file's bytes,
// and the decompressors of a container and of a container inside it.
#include <cstdint>
#include <vector>

#include "prefetch/container_decompressor.h"

struct decode_buffers {
    std::vector<std::uint8_t> file_bytes;
    container_decompressor outer;
    container_decompressor inner;
    // Whether to take the SHA-256 of each input as read. It costs about a
    // fifth of a text batch's time, so a run whose form does not show it
    // leaves it out.
    bool digest_wanted = true;

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
