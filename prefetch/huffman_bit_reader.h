#pragma once
// The bit reader of an LZ77+Huffman block, which knows where the stream's
// next word lies so that the length escapes between the words can be read.
#include <bit>
#include <cstdint>
#include <cstring>

// The bit stream of a Huffman block: 16-bit little-endian words from offset
// 256, each read from its top bit, a word that doesn't lie wholly inside
// reading as 0. The length escapes of matches are bytes that lie between the
// words, at the place where the next word would have been read, so that
// place has to be known exactly: it is where a reader stands that holds 16 to
// 31 bits (32 before the first bit is used) and adds a word whenever fewer
// than 16 are left. This reader runs ahead, up to 64 bits, so that a refill
// is rare; `settle` puts back what it read ahead of that place.
class block_bit_reader {
public:
    block_bit_reader(std::uint8_t const* block, std::int64_t length) : m_block(block), m_end(length)
    {
        m_bits = std::uint64_t{word_at(256)} << 48 | std::uint64_t{word_at(258)} << 32;
    }

    // The top `count` bits (at most 15; at least 16 are always held).
    std::uint32_t peek(unsigned count) const
    {
        return count == 0 ? 0 : static_cast<std::uint32_t>(m_bits >> (64 - count));
    }
    void skip(unsigned count)
    {
        m_bits <<= count;
        m_held -= static_cast<int>(count);
    }

    // Holds at least 49 bits afterwards: enough for a symbol and its offset
    // bits with 16 to spare.
    void refill()
    {
        if (m_held > 48) return;
        if (m_next + 8 <= m_end) {
            std::uint64_t const words = four_words(m_block + m_next);
            // Bits of a word only partly taken are taken again next time.
            m_bits |= words >> m_held;
            int const taken = (64 - m_held) / 16;
            advance(taken);
            return;
        }
        while (m_held <= 48) {
            m_bits |= std::uint64_t{word_at(m_next)} << (48 - m_held);
            advance(1);
        }
    }

    // `refill` without its tests, for a reader at least 8 bytes before the end
    // of the input and holding fewer than 64 bits: adds the whole words that
    // fit, so that 48 to 63 bits are held. Bits below the held ones are always
    // the stream's next bits or 0, so adding them again changes nothing.
    void refill_ahead()
    {
        m_bits |= four_words(m_block + m_next) >> m_held;
        m_next += 2 * ((63 - m_held) >> 4);
        m_held |= 48;
    }
    std::int64_t next() const { return m_next; }
    // All 64 bits held, as `refill` may leave them: no state for `refill_ahead`.
    bool full() const { return m_held >= 64; }
    std::uint64_t all() const { return m_bits; }

    // True while the exact place of the stream lies before the end of the
    // input. Held bits stay at 49 or more, as after `refill`.
    bool input_left()
    {
        if (m_next < m_end) return true;
        bool const left = settle() < m_end;
        refill();
        return left;
    }

    // Puts back the words read ahead and returns the exact place in the input.
    std::int64_t settle()
    {
        std::uint64_t const used = static_cast<std::uint64_t>(8 * (m_next - 256 - m_skipped) - m_held);
        int const spare = used == 0 ? 16 : static_cast<int>((0 - used) & 15);
        int const ahead = (m_held - 16 - spare) / 16;
        m_next -= 2 * ahead;
        m_held = 16 + spare;
        m_bits &= ~std::uint64_t{0} << (64 - m_held);
        return m_next;
    }
    // After bytes were read at the settled place: the words go on behind them.
    void resume_at(std::int64_t place)
    {
        m_skipped += place - m_next;
        m_next = place;
    }

    std::uint32_t word_at(std::int64_t at) const { return at >= 0 && at + 2 <= m_end ? word(m_block + at) : 0; }

private:
    static std::uint32_t word(std::uint8_t const* at) { return static_cast<std::uint32_t>(at[0] | at[1] << 8); }
    // Four words in one load, the first on top.
    static std::uint64_t four_words(std::uint8_t const* at)
    {
        if constexpr (std::endian::native == std::endian::little) {
            std::uint64_t raw = 0;
            std::memcpy(&raw, at, sizeof raw);
            // The words in reverse order: the halves swapped, then the words in each half.
            raw = raw << 32 | raw >> 32;
            return (raw & 0x0000FFFF0000FFFFu) << 16 | (raw >> 16 & 0x0000FFFF0000FFFFu);
        }
        return std::uint64_t{word(at)} << 48 | std::uint64_t{word(at + 2)} << 32 | std::uint64_t{word(at + 4)} << 16 |
               word(at + 6);
    }
    void advance(int words)
    {
        m_held += 16 * words;
        m_next += 2 * words;
    }

    std::uint8_t const* m_block;
    std::int64_t m_end;
    std::uint64_t m_bits = 0;
    int m_held = 32;
    std::int64_t m_next = 260;
    std::int64_t m_skipped = 0; // bytes of length escapes between the words, for `settle`
};
