// Bytes in, every hit of the carving scanner, through windows of 4 KiB so that
// candidates straddle their ends.
#include "prefetch/carve_scan.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    carve_scanner scanner(
        [data, size](std::uint64_t offset, std::uint8_t* buffer, std::size_t count) -> std::int64_t {
            if (offset >= size) return 0;
            std::size_t const n = std::min<std::size_t>(count, size - static_cast<std::size_t>(offset));
            std::memcpy(buffer, data + offset, n);
            return static_cast<std::int64_t>(n);
        },
        4096);
    for (carve_hit hit; scanner.next(hit);)
        if (hit.offset + hit.length > size) __builtin_trap();
    return 0;
}
