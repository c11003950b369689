#include "prefetch/container_decompressor.h"

#include "foundation/uni_fileio.h"
#include "prefetch/byte_reader.h"
#include "prefetch/huffman_block.h"
#include "prefetch/lz77_match.h"
#include "prefetch/plain_lz77.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>

namespace {

constexpr std::uint8_t xpress_magic[8] = {0x81, 0x81, 'x', 'p', 'r', 'e', 's', 's'};
// The 8-byte header of "MAM" and "MEM0", then the first block.
constexpr std::int64_t block_header_size = 8;
// The most output a container may declare: the loader's own input limit. The
// largest real Prefetch file unpacks to well under 1 MiB; a larger claim is
// treated as an allocation that fails, so a tiny hostile header cannot cost
// gigabytes.
constexpr std::uint32_t max_declared_output = 0x1000000;

std::int32_t clamp_size(std::size_t size)
{
    return static_cast<std::int32_t>(std::min<std::size_t>(size, std::numeric_limits<std::int32_t>::max()));
}

} // namespace

std::uint32_t detect_container(std::uint32_t& output_size, std::uint8_t const* data, std::int32_t size)
{
    output_size = 0;
    if (data == nullptr || size < 13) return container_none;
    if (std::memcmp(data, xpress_magic, sizeof xpress_magic) == 0) {
        // The size code counts 4096-byte units, less one.
        output_size = (static_cast<std::uint32_t>(data[8]) + 1) * 4096;
        return container_xpress;
    }
    read_u32(byte_view{data, static_cast<std::size_t>(size)}, 4, output_size);
    // A header that declares no output is no container, whatever its magic.
    if (output_size == 0) return container_none;
    if (std::memcmp(data, "MEM0", 4) == 0) return container_mem0;
    if (std::memcmp(data, "MAM", 3) == 0) return container_mam;
    return container_none;
}

std::uint32_t detect_container(std::uint32_t& output_size, std::vector<std::uint8_t> const& data)
{
    output_size = 0;
    if (data.empty()) return container_none;
    return detect_container(output_size, data.data(), clamp_size(data.size()));
}

container_decompressor::container_decompressor() = default;

// Only a table of the first block that fills completely is used, so what an
// earlier container left in the table never shows.
void container_decompressor::reset()
{
    m_kind = 0;
    m_output_size = 0;
    m_output.clear();
    m_output_pos = 0;
    m_table_ready = false;
    m_consumed = 0;
    m_block_failed = false;
    m_resume_position = -1;
    m_block = {};
}

void container_decompressor::trim(std::size_t kept)
{
    if (m_output.capacity() > kept) m_output = {};
}

bool container_decompressor::decompress_container(std::vector<std::uint8_t> const& data)
{
    if (data.empty()) return false;
    return decompress_container(data.data(), clamp_size(data.size()));
}

bool container_decompressor::decompress_container(std::uint8_t const* data, std::int32_t size)
{
    return decompress_container(data, size, std::numeric_limits<std::uint32_t>::max());
}

bool container_decompressor::decompress_container(std::uint8_t const* data, std::int32_t size, std::uint32_t wanted)
{
    m_resume_position = -1;
    m_block = {};
    m_wanted = std::max<std::uint32_t>(wanted, 1);
    if (data == nullptr) size = 0;
    std::int64_t position = 0;
    // An object that already holds a table continues its output with new input.
    if (!m_table_ready || m_output_size == 0) {
        m_kind = detect_container(m_output_size, data, size);
        if (m_kind == container_none) return false;
        if (m_kind == container_xpress) {
            if (decode_plain_xpress(data, size) == 0) return false;
            if (m_output_size == lz77_block_output) {
                m_table_ready = true;
                return true;
            }
            // Any other size code falls through to the block loop, which has
            // no Plain LZ77 form and refuses kind 4 once it is entered.
        } else {
            position = block_header_size;
        }
    }
    if (m_output_size > max_declared_output) return false;
    try {
        m_output.resize(m_output_size);
    } catch (std::bad_alloc const&) {
        return false;
    } catch (std::length_error const&) {
        return false;
    }
    m_output_pos = 0;
    m_consumed = 0;
    m_block_failed = false;
    if (m_output.empty()) return false;
    return decode_blocks(data, size, position, static_cast<std::int32_t>(lz77_block_output));
}

std::uint32_t container_decompressor::decode_to(std::uint32_t end)
{
    if (m_resume_position >= 0 && end > m_output_pos) {
        m_wanted = end;
        decode_blocks(m_input, m_input_size, m_resume_position, m_resume_block_size);
    }
    return final_end();
}

std::uint32_t container_decompressor::final_end() const
{
    return m_resume_position >= 0 ? m_output_pos : static_cast<std::uint32_t>(m_output.size());
}

bool container_decompressor::decode_blocks(std::uint8_t const* data, std::int32_t size, std::int64_t position,
                                           std::int32_t block_size)
{
    byte_view const input{data, static_cast<std::size_t>(std::max(size, 0))};
    m_resume_position = -1;
    auto const pause = [&] {
        m_input = data;
        m_input_size = size;
        m_resume_position = position;
        m_resume_block_size = block_size;
        return true;
    };
    for (;;) {
        if (m_block.over()) {
            // A block needs more than its 256-byte table behind the position; the
            // last output byte is never decoded, so the loop stops one short of it.
            if (position < 0 || position >= size || size - position <= 256 || block_size <= 0 ||
                m_output_pos >= m_output_size - 1)
                break;
            if (m_output_pos >= m_wanted) return pause();
            if (m_kind == container_mem0) {
                // MEM0 puts the length of each block in front of it.
                std::uint32_t stored = 0;
                read_u32(input, static_cast<std::uint64_t>(position), stored);
                block_size = static_cast<std::int32_t>(stored);
                position += 4;
            } else if (m_kind == container_mam) {
                block_size = static_cast<std::int32_t>(lz77_block_output);
            } else {
                return false;
            }
            if (!start_huffman_block(data + position, static_cast<std::size_t>(size - position))) {
                m_block_failed = true;
                break;
            }
        }
        bool const ok = m_block.run(m_wanted);
        m_output_pos = m_block.position();
        // Paused inside the block: `position` stays at its start.
        if (ok && !m_block.over()) return pause();
        if (!ok || m_block.consumed() == 0) {
            m_block_failed = true;
            break;
        }
        position += m_kind == container_mem0 ? block_size : static_cast<std::int64_t>(m_block.consumed());
        m_consumed = static_cast<std::size_t>(std::clamp<std::int64_t>(position, 0, size));
    }
    // A failed block keeps what was made: the rest of the output stays zero.
    return true;
}

bool container_decompressor::start_huffman_block(std::uint8_t const* block, std::size_t length)
{
    // Only a first table can fail: a later deficient one runs on the old tail.
    if (m_table.build(block, length)) m_table_ready = true;
    if (!m_table_ready) return false;
    if (block == nullptr) length = 0;
    if (!m_table.usable()) return false;
    m_block = huffman_block_decoder(byte_view{block, length}, m_table.lookup(), m_output.data(), m_output_size,
                                    m_output_pos);
    return true;
}

std::size_t container_decompressor::decode_plain_xpress(std::uint8_t const* data, std::int32_t size)
{
    if (detect_container(m_output_size, data, size) != container_xpress) return 0;
    if (m_output_size > lz77_block_output) return 0;
    try {
        m_output.assign(lz77_block_output, 0);
    } catch (std::bad_alloc const&) {
        return 0;
    }
    return decode_plain_lz77(data, size, m_output.data(), m_output_size);
}

bool container_decompressor::write_output_file(std::string const& path)
{
    if (!m_table_ready || m_output.empty()) return false;
    uni::fileio file;
    if (!file.open(path, /*write=*/true, /*truncate=*/true)) return false;
    // The outcome of the write isn't checked; a short write shows in the file.
    file.append(m_output);
    file.close();
    return true;
}
