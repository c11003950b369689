#include "prefetch/huffman_code_table.h"

#include <algorithm>
#include <array>

namespace {

// The code lengths, two 4-bit values a byte, stand before the bit stream.
constexpr std::size_t code_length_bytes = 256;

// The symbols that have a code, shorter codes first and by symbol within a
// length: a counting sort of the 512 lengths. `covered` is how many 15-bit
// indexes the codes own together.
struct canonical_order {
    std::array<std::uint16_t, symbol_count> symbols;
    std::size_t count = 0;
    std::size_t covered = 0;
    std::array<std::uint32_t, max_code_bits + 1> per_length{}; // symbols with a code of each length

    explicit canonical_order(std::vector<std::uint16_t> const& lengths)
    {
        // The symbols are counted and placed in four quarters side by side,
        // so that a run of equal lengths doesn't wait on one counter's last
        // increment. A quarter's symbols of a length go behind the earlier
        // quarters' ones.
        constexpr std::size_t quarter = symbol_count / 4;
        std::uint16_t padded[symbol_count] = {};
        std::copy_n(lengths.begin(), std::min<std::size_t>(lengths.size(), symbol_count), padded);
        std::array<std::array<std::uint32_t, max_code_bits + 1>, 4> next{};
        for (std::size_t i = 0; i < quarter; ++i)
            for (std::size_t q = 0; q < 4; ++q) ++next[q][padded[q * quarter + i] & max_code_bits];
        // Each length's places, quarter by quarter, from where the last one ended.
        std::uint32_t place = 0;
        auto const place_length = [&](unsigned length) {
            for (std::size_t q = 0; q < 4; ++q) {
                std::uint32_t const n = next[q][length];
                next[q][length] = place;
                place += n;
            }
        };
        for (unsigned length = 1; length <= max_code_bits; ++length) {
            std::size_t const n = next[0][length] + next[1][length] + next[2][length] + next[3][length];
            per_length[length] = static_cast<std::uint32_t>(n);
            covered += n << (max_code_bits - length);
            count += n;
            place_length(length);
        }
        // Symbols without a code go behind the others, so that placing one needs no branch.
        place_length(0);
        for (std::size_t i = 0; i < quarter; ++i)
            for (std::size_t q = 0; q < 4; ++q) {
                auto const symbol = static_cast<std::uint16_t>(q * quarter + i);
                symbols[next[q][padded[symbol] & max_code_bits]++] = symbol;
            }
    }
    std::uint16_t const* begin() const { return symbols.data(); }
    std::uint16_t const* end() const { return symbols.data() + count; }
};

// Fills the tables of codes that own every 15-bit index exactly: a code of
// up to 11 bits in the fast table, a longer one in the direct table. Returns
// where the direct table's entries begin. Each length's span is known ahead,
// so no code is cut or tested against the end.
std::size_t fill_complete(canonical_order const& order, std::uint32_t* fast, std::uint16_t* direct)
{
    std::uint16_t const* symbol = order.begin();
    std::size_t place = 0;
    for (unsigned length = 1; length <= fast_bits; ++length) {
        std::size_t const span = std::size_t{1} << (fast_bits - length);
        for (std::uint32_t n = order.per_length[length]; n > 0; --n, ++symbol, place += span)
            std::fill_n(fast + place, span, huffman_step::of(*symbol, length));
    }
    std::size_t const direct_from = place << fast_group_bits;
    place = direct_from;
    for (unsigned length = fast_bits + 1; length <= max_code_bits; ++length) {
        std::size_t const span = std::size_t{1} << (max_code_bits - length);
        for (std::uint32_t n = order.per_length[length]; n > 0; --n, ++symbol, place += span)
            std::fill_n(direct + place, span, table_entry(*symbol, length));
    }
    return direct_from;
}

} // namespace

bool huffman_code_table::build(std::uint8_t const* block, std::size_t length)
{
    if (block == nullptr || length < code_length_bytes) return false;
    // Two 4-bit code lengths a byte, the low half first.
    m_code_lengths.resize(symbol_count);
    for (std::size_t i = 0; i < code_length_bytes; ++i) {
        m_code_lengths[2 * i] = block[i] & 0x0F;
        m_code_lengths[2 * i + 1] = block[i] >> 4;
    }
    // Entries beyond what this table fills keep the previous block's symbols.
    m_code_table.resize(static_cast<std::size_t>(std::max(m_table_size, 0)));
    std::size_t const limit = m_code_table.size();
    canonical_order const order(m_code_lengths);
    // A complete table needs the direct table only behind its short codes,
    // where lookups are sent on. A deficient one keeps the old tail, so the
    // whole old table is made direct first.
    bool const complete = order.covered >= limit;
    if (!complete) {
        for (std::size_t i = 0; i < m_direct_from; ++i) {
            std::uint32_t const old = m_fast_table[i >> fast_group_bits];
            m_code_table[i] = table_entry(huffman_step::symbol(old), huffman_step::code_length(old));
        }
    }
    m_direct_from = complete ? limit : 0;
    m_fast_table.assign(std::size_t{1} << fast_bits, see_direct_table);
    // Canonical order: shorter codes first, then by symbol. Each symbol owns
    // every 15-bit index that begins with its code; an oversubscribed table is
    // cut off at the end, and the symbols behind the cut get nothing. Real
    // tables own every index exactly, and need no cut.
    std::size_t filled = 0;
    if (order.covered == limit) {
        m_direct_from = fill_complete(order, m_fast_table.data(), m_code_table.data());
        filled = limit;
    } else {
        for (std::uint16_t const symbol : order) {
            if (filled >= limit) break;
            unsigned const bits = m_code_lengths[symbol];
            std::size_t const count = std::min(std::size_t{1} << (max_code_bits - bits), limit - filled);
            // Shorter codes all came first, so this one starts on a whole group.
            if (bits <= fast_bits) {
                std::fill_n(m_fast_table.begin() + static_cast<std::ptrdiff_t>(filled >> fast_group_bits),
                            count >> fast_group_bits, huffman_step::of(symbol, bits));
            } else {
                m_direct_from = std::min(m_direct_from, filled);
            }
            if (filled >= m_direct_from)
                std::fill_n(m_code_table.begin() + static_cast<std::ptrdiff_t>(filled), count,
                            table_entry(symbol, bits));
            filled += count;
        }
    }
    // An old symbol in the tail takes as many bits as this block's lengths give it.
    for (std::size_t i = filled; i < limit; ++i) {
        std::uint32_t const symbol = m_code_table[i] & (symbol_count - 1);
        m_code_table[i] = table_entry(symbol, m_code_lengths[symbol]);
    }
    return limit > 0 && filled == limit;
}

bool huffman_code_table::usable() const
{
    return m_code_table.size() >= (std::size_t{1} << max_code_bits) && m_code_lengths.size() >= symbol_count &&
           m_fast_table.size() >= (std::size_t{1} << fast_bits);
}
