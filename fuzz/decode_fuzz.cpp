// Hostile bytes through the whole decoding chain of one buffer, containers
// included.
#include <cstddef>
#include <cstdint>

#include "driver/kito_user_context.h"
#include "prefetch/container_decompressor.h"
#include "prefetch/decode_chain.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    // A container may declare up to 4 GiB of output, which the decompressor
    // allocates as declared. That is a cost, not a fault: keep such inputs out
    // so the fuzzer's memory limit finds real leaks and overruns instead.
    std::uint32_t declared = 0;
    if (detect_container(declared, data, static_cast<std::int32_t>(size)) != container_none && declared > (1u << 24))
        return 0;
    kito_user_context context;
    decode_prefetch_buffer(data, static_cast<std::uint32_t>(size), context);
    return 0;
}
