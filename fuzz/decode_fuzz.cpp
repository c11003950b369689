// Hostile bytes through the whole decoding chain of one buffer, containers
// included; and through the chain of a form that shows neither names nor
// volumes, which decompresses only as far as it reads and must show what the
// whole decode shows.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "prefetch/decode_chain.h"

namespace {

bool decode_as_read(std::uint8_t const* data, std::size_t size, decode_wants wants, decode_buffers& buffers,
                    prefetch_entry& entry, std::string& label)
{
    buffers.file_bytes.assign(data, data + size);
    buffers.wants = wants;
    return decode_input_bytes(buffers, entry, label);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    container_decompressor inner;
    prefetch_entry entry;
    std::string label;
    decode_prefetch_buffer(data, static_cast<std::uint32_t>(size), inner, entry, label);

    decode_buffers whole_buffers, part_buffers;
    prefetch_entry whole, part;
    std::string whole_label, part_label;
    bool const whole_ok = decode_as_read(data, size, decode_wants{}, whole_buffers, whole, whole_label);
    decode_wants const shown_alone{.digest = false, .file_names = false, .volume_directories = false,
                                   .path_hash = false, .volumes = false};
    bool const part_ok = decode_as_read(data, size, shown_alone, part_buffers, part, part_label);
    if (whole_ok != part_ok || whole.failure != part.failure || whole.target_path != part.target_path ||
        whole.target_name != part.target_name || whole.run_count != part.run_count ||
        whole.last_run != part.last_run || whole.prev_run_times != part.prev_run_times || whole_label != part_label)
        std::abort();
    return 0;
}
