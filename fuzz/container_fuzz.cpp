// Bytes in, one container decompression on a fresh object.
#include "prefetch/container_decompressor.h"

#include <cstddef>
#include <cstdint>
#include <limits>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    if (size > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())) return 0;
    // The output is allocated at the size the header declares, up to 4 GiB;
    // that is by design, and only slows the search down.
    std::uint32_t declared = 0;
    detect_container(declared, data, static_cast<std::int32_t>(size));
    if (declared > (64u << 20)) return 0;
    container_decompressor decompressor;
    decompressor.decompress_container(data, static_cast<std::int32_t>(size));
    return 0;
}
