#pragma once
// The code table of one LZ77+Huffman block: the 512 code lengths of four
// bits at the block's start, in canonical order (shorter codes first, then by
// symbol), turned into lookup tables that give the decoding step of the code
// on top of the stream's next bits.
#include <cstddef>
#include <cstdint>
#include <vector>

constexpr std::uint32_t symbol_count = 512;
constexpr unsigned max_code_bits = 15;

// A direct table entry: the symbol in the low 9 bits, the length of its code above.
constexpr unsigned entry_symbol_bits = 9;
inline std::uint16_t table_entry(std::uint32_t symbol, std::uint32_t code_length)
{
    return static_cast<std::uint16_t>(symbol | code_length << entry_symbol_bits);
}

// The direct table of 32768 entries doesn't fit the processor's first-level
// cache, and each symbol waits for its lookup before the next one can start.
// So the first 11 bits index a small table first. Sending a lookup on to the
// direct table is always right; a code of up to 11 bits owns whole groups of
// 16 entries under 11-bit indexes, and there the small table holds its entry.
constexpr unsigned fast_bits = 11;
constexpr unsigned fast_group_bits = max_code_bits - fast_bits;
// Not a step: a match takes at least one bit.
constexpr std::uint32_t see_direct_table = 0x80000000u;

// A decoding step, laid out so that each use is one shift: in the low 6 bits
// the bits to take from the stream (the code, and the offset bits of a match
// whose length is in its symbol, so that one shift gets to the next symbol),
// and the top bit set for a match. A literal has its byte from bit 8. A match
// has its code's length from bit 8, 63 less its offset bits from bit 16, and
// its length from bit 24, or 0 where the length follows in the input.
struct huffman_step {
    static constexpr std::uint32_t match_flag = 0x80000000u;
    static constexpr std::uint32_t of(std::uint32_t symbol, std::uint32_t code_length)
    {
        if (symbol < 256) return code_length | symbol << 8;
        std::uint32_t const length_code = symbol & 15;
        std::uint32_t const offset_bits = (symbol - 256) >> 4;
        bool const length_follows = length_code == 15;
        return (length_follows ? code_length : code_length + offset_bits) | match_flag | code_length << 8 |
               (63 - offset_bits) << 16 | (length_follows ? 0 : length_code + 3) << 24;
    }
    static std::uint32_t bits(std::uint32_t step) { return step & 63; }
    static bool is_match(std::uint32_t step) { return (step & match_flag) != 0; }
    static std::uint8_t literal(std::uint32_t step) { return static_cast<std::uint8_t>(step >> 8); }
    static std::uint32_t match_length(std::uint32_t step) { return step >> 24 & 31; }
    static std::uint32_t offset_bits(std::uint32_t step) { return 63 - (step >> 16 & 63); }
    static std::uint32_t code_length(std::uint32_t step) { return is_match(step) ? step >> 8 & 15 : bits(step); }
    static std::uint32_t symbol(std::uint32_t step)
    {
        if (!is_match(step)) return literal(step);
        std::uint32_t const length = match_length(step);
        return 256 + (offset_bits(step) << 4) + (length == 0 ? 15 : length - 3);
    }
    // The distance of a match whose offset bits were taken with its code,
    // from the bits as they stood before it: a 1 put above the offset bits.
    static std::uint32_t distance(std::uint32_t step, std::uint64_t before)
    {
        std::uint64_t const offset_on_top = before << (step >> 8 & 63);
        return static_cast<std::uint32_t>((offset_on_top >> 1 | std::uint64_t{1} << 63) >> (step >> 16 & 63));
    }
};

struct code_tables {
    std::uint32_t const* fast;
    std::uint16_t const* direct;

    // The step of the code on top of `bits`.
    std::uint32_t entry(std::uint64_t bits) const
    {
        std::uint32_t const entry = fast[bits >> (64 - fast_bits)];
        if (entry != see_direct_table) [[likely]]
            return entry;
        return direct_step(static_cast<std::uint32_t>(bits >> (64 - max_code_bits)));
    }
    // Out of line, so that the common case doesn't make its index.
    [[gnu::noinline]] std::uint32_t direct_step(std::uint32_t next_15_bits) const
    {
        std::uint32_t const direct_entry = direct[next_15_bits];
        return huffman_step::of(direct_entry & (symbol_count - 1), direct_entry >> entry_symbol_bits);
    }
};

// The tables of the block in hand. A table that does not own every 15-bit
// index (a damaged one) keeps the previous block's symbols in its tail, as
// the reference decoder does; a first table must fill completely.
class huffman_code_table {
public:
    // Builds from the 256 bytes of code lengths at `block`. False when fewer
    // are there (the table is left as it was) or when this table did not fill
    // every index.
    bool build(std::uint8_t const* block, std::size_t length);
    // Whether the lookup tables have their full sizes.
    bool usable() const;
    code_tables lookup() const { return {m_fast_table.data(), m_code_table.data()}; }

private:
    std::vector<std::uint16_t> m_code_lengths;
    std::int32_t m_table_size = 32768;
    std::vector<std::uint16_t> m_code_table;
    // Decoding steps for the first 11 bits of m_code_table's index; a code of
    // more bits is sent on to m_code_table, which only from m_direct_from on
    // holds every entry.
    std::vector<std::uint32_t> m_fast_table;
    std::size_t m_direct_from = 0;
};
