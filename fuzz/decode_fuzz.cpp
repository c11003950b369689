// Hostile bytes through the whole decoding chain of one buffer, containers
// included.
#include <cstddef>
#include <cstdint>

#include "prefetch/decode_chain.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    container_decompressor inner;
    prefetch_entry entry;
    std::string label;
    decode_prefetch_buffer(data, static_cast<std::uint32_t>(size), inner, entry, label);
    return 0;
}
