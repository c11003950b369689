// Hostile bytes through the whole decoding chain of one buffer, containers
// included.
#include <cstddef>
#include <cstdint>

#include "driver/kito_user_context.h"
#include "prefetch/decode_chain.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    kito_user_context context;
    decode_prefetch_buffer(data, static_cast<std::uint32_t>(size), context);
    return 0;
}
