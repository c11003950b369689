#pragma once
// A span of readable bytes of known size, by which the library bridges feed
// one another: a partition as The Sleuth Kit reads it becomes the volume that
// libvshadow reads, and a shadow copy or a QCOW2 disk becomes an image that
// The Sleuth Kit reads.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>

struct byte_range {
    std::uint64_t size = 0;
    // Reads `length` bytes at `offset` into `into`; false when any of them
    // can't be read. The callers keep offset + length within size.
    std::function<bool(std::uint64_t offset, std::uint8_t* into, std::size_t length)> read;
};

// A read of `range` cut to its size: the bytes read, -1 on failure.
inline std::int64_t read_clamped(byte_range const& range, std::uint64_t offset, std::uint8_t* into, std::size_t length)
{
    if (offset >= range.size) return 0;
    std::size_t const wanted = static_cast<std::size_t>(std::min<std::uint64_t>(length, range.size - offset));
    return range.read(offset, into, wanted) ? static_cast<std::int64_t>(wanted) : -1;
}
