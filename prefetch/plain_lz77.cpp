#include "prefetch/plain_lz77.h"

#include <algorithm>
#include <cstring>

#include "prefetch/byte_reader.h"
#include "prefetch/lz77_match.h"

namespace {

// The Plain LZ77 stream follows a 32-byte header.
constexpr std::int64_t xpress_stream_offset = 32;

// The Plain LZ77 stream behind the 32-byte header. Its length is the
// header's claim, cut to the input; the bytes that are really there bound
// every read even where that claim says more. Each read is false where the
// stream ends, and the decoder then stops.
class plain_reader {
public:
    plain_reader(std::uint8_t const* data, std::int32_t size) : m_input_size(size)
    {
        std::uint32_t length_word = 0;
        read_u32(byte_view{data, static_cast<std::size_t>(size)}, 9, length_word);
        m_length = (static_cast<std::int64_t>(length_word >> 2) + 8) & ~std::int64_t{7};
        if (m_length > size) m_length = size - xpress_stream_offset;
        m_available = std::max<std::int64_t>(0, size - xpress_stream_offset);
        m_stream = m_available > 0 ? data + xpress_stream_offset : nullptr;
    }

    std::int64_t length() const { return m_length; }
    std::int64_t position() const { return m_position; }
    bool more() const { return m_position < m_length; }

    std::size_t copy_stored(std::uint8_t* out) const
    {
        std::int64_t const count = std::min(m_length, m_available);
        if (count > 0) std::memcpy(out, m_stream, static_cast<std::size_t>(count));
        return static_cast<std::size_t>(std::max<std::int64_t>(count, 0));
    }

    // Flags come 32 to a little-endian word, used from the top bit down: 0
    // a literal, 1 a match. A byte of the stream must follow the flag.
    bool next_flag(bool& is_match)
    {
        if (m_flag_count == 0) {
            if (!inside(m_position, 4)) return false;
            m_flags = static_cast<std::uint32_t>(m_stream[m_position]) | m_stream[m_position + 1] << 8 |
                      m_stream[m_position + 2] << 16 | static_cast<std::uint32_t>(m_stream[m_position + 3]) << 24;
            m_position += 4;
            m_flag_count = 32;
        }
        if (!byte_left()) return false;
        is_match = (m_flags & 0x80000000u) != 0;
        m_flags <<= 1;
        --m_flag_count;
        return true;
    }
    std::uint8_t literal() { return m_stream[m_position++]; }

    // The match word: length code in the low three bits, distance less one above.
    bool read_match(std::uint32_t& length_code, std::uint32_t& offset_code)
    {
        if (!inside(m_position, 2)) return false;
        std::uint32_t const word = m_stream[m_position] | m_stream[m_position + 1] << 8;
        m_position += 2;
        length_code = word & 7;
        offset_code = word >> 3;
        if (length_code != 7) return true;
        std::uint32_t extension = 0;
        if (!read_extension(extension)) return false;
        length_code = extension + 7;
        return true;
    }

private:
    // Length extensions come in half-bytes: the first uses the low half of a
    // new byte, the next the high half of that same byte. 0 is never such a
    // byte's position (a flag word stands there), so it means "none". 15
    // goes on into a byte, and 255 there into a u16 of the whole length less
    // 3; values below 22 wrap and come out as that value plus 3 all the same.
    bool read_extension(std::uint32_t& extension)
    {
        if (m_half_byte_at != 0) {
            if (m_half_byte_at >= m_length) return false;
            extension = m_stream[m_half_byte_at] >> 4;
            m_half_byte_at = 0;
        } else {
            if (!byte_left()) return false;
            extension = m_stream[m_position] & 0x0F;
            m_half_byte_at = m_position++;
            if (m_position >= m_input_size) return false;
        }
        if (extension != 15) return true;
        if (!byte_left()) return false;
        std::uint32_t extra = m_stream[m_position++];
        if (extra == 255) {
            if (m_position + 1 >= m_length || !inside(m_position, 2)) return false;
            extra = (m_stream[m_position] | m_stream[m_position + 1] << 8) - 22u;
            m_position += 2;
        }
        extension = extra + 15;
        return true;
    }

    bool inside(std::int64_t at, std::int64_t count) const { return at >= 0 && at + count <= m_available; }
    bool byte_left() const { return m_position < m_length && inside(m_position, 1); }

    std::uint8_t const* m_stream = nullptr;
    std::int64_t m_input_size;
    std::int64_t m_available = 0;
    std::int64_t m_length = 0;
    std::int64_t m_position = 0;
    std::uint32_t m_flags = 0;
    int m_flag_count = 0;
    std::int64_t m_half_byte_at = 0;
};

// Literals and matches into the 65536-byte output until `output_size` bytes
// or the stream end. The result is the stream position at the start of the
// round that stopped, or at the end.
std::size_t decode_plain_tokens(plain_reader& in, std::uint8_t* out, std::uint32_t output_size)
{
    std::uint32_t out_pos = 0;
    while (out_pos < output_size && in.more()) {
        auto const round_start = static_cast<std::size_t>(in.position());
        bool is_match = false;
        if (!in.next_flag(is_match)) return round_start;
        if (!is_match) {
            out[out_pos++] = in.literal();
            continue;
        }
        std::uint32_t length_code = 0, offset_code = 0;
        if (!in.read_match(length_code, offset_code)) return round_start;
        std::uint32_t const to_copy = std::min(length_code + 3, lz77_block_output - (out_pos & 0xFFFF));
        // Nothing before the start of the output can be copied: the stream ends there.
        if (offset_code + 1 > out_pos) return round_start;
        std::uint32_t const copied = std::min(to_copy, output_size - out_pos);
        copy_match(out, out_pos, offset_code + 1, copied);
        out_pos += copied;
    }
    return static_cast<std::size_t>(in.position());
}

} // namespace

std::size_t decode_plain_lz77(std::uint8_t const* data, std::int32_t size, std::uint8_t* out, std::uint32_t output_size)
{
    plain_reader in(data, size);
    if (in.length() == lz77_block_output || in.length() == output_size) return in.copy_stored(out);
    return decode_plain_tokens(in, out, output_size);
}
