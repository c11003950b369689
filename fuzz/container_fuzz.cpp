// Bytes in, one container decompression on a fresh object; and the same
// container decoded in steps, which must make the same output.
#include "prefetch/container_decompressor.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    if (size > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())) return 0;
    auto const length = static_cast<std::int32_t>(size);
    container_decompressor whole;
    bool const ok = whole.decompress_container(data, length);
    // The step follows from the input's first byte: 1 to 256 bytes of output a step.
    std::uint32_t const step = size > 0 ? data[0] + 1u : 1u;
    container_decompressor stepped;
    if (stepped.decompress_container(data, length, step) != ok) std::abort();
    if (!ok) return 0;
    std::uint32_t const size_out = static_cast<std::uint32_t>(stepped.output().size());
    while (stepped.final_end() < size_out) {
        std::uint32_t const before = stepped.final_end();
        if (stepped.decode_to(before + step) <= before) std::abort();
    }
    if (stepped.output() != whole.output() || stepped.consumed() != whole.consumed() ||
        stepped.block_failed() != whole.block_failed())
        std::abort();
    return 0;
}
