// Bytes in, one container decompression on a fresh object.
#include "prefetch/container_decompressor.h"

#include <cstddef>
#include <cstdint>
#include <limits>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    if (size > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())) return 0;
    container_decompressor decompressor;
    decompressor.decompress_container(data, static_cast<std::int32_t>(size));
    return 0;
}
