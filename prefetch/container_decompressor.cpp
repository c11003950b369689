#include "prefetch/container_decompressor.h"

#include "foundation/uni_fileio.h"
#include "prefetch/byte_reader.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>

namespace {

constexpr std::uint8_t xpress_magic[8] = {0x81, 0x81, 'x', 'p', 'r', 'e', 's', 's'};
// Each Huffman block makes this many output bytes, and the Plain LZ77 form
// always decodes into a buffer of this size.
constexpr std::uint32_t block_output = 65536;
// Header, then the 256-byte code length table of the first block.
constexpr std::int64_t block_header_size = 8;
constexpr std::size_t code_length_bytes = 256;
constexpr std::uint32_t symbol_count = 512;
constexpr unsigned max_code_bits = 15;
// The Plain LZ77 stream follows a 32-byte header.
constexpr std::int64_t xpress_stream_offset = 32;
// The most output a container may declare: the loader's own input limit. The
// largest real Prefetch file unpacks to well under 1 MiB; a larger claim is
// treated as an allocation that fails, so a tiny hostile header cannot cost
// gigabytes.
constexpr std::uint32_t max_declared_output = 0x1000000;

std::int32_t clamp_size(std::size_t size)
{
    return static_cast<std::int32_t>(std::min<std::size_t>(size, std::numeric_limits<std::int32_t>::max()));
}

// Copies a match of `count` bytes from `distance` back, with the result of a
// byte-by-byte copy: where source and destination overlap, the bytes repeat
// with a period of `distance`. Everything from the source to the destination
// is then a whole number of periods, so it can be copied on in one piece
// that doesn't overlap, and each piece doubles the next one.
void copy_match(std::uint8_t* out, std::uint32_t position, std::uint32_t distance, std::uint32_t count)
{
    std::uint8_t* dst = out + position;
    std::uint8_t const* const src = dst - distance;
    if (distance == 1) {
        std::memset(dst, *src, count);
        return;
    }
    while (count > 0) {
        std::uint32_t const piece = std::min(count, static_cast<std::uint32_t>(dst - src));
        std::memcpy(dst, src, piece);
        dst += piece;
        count -= piece;
    }
}

// A direct table entry: the symbol in the low 9 bits, the length of its code above.
constexpr unsigned entry_symbol_bits = 9;
std::uint16_t table_entry(std::uint32_t symbol, std::uint32_t code_length)
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
struct step {
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
        return step::of(direct_entry & (symbol_count - 1), direct_entry >> entry_symbol_bits);
    }
};

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
            std::fill_n(fast + place, span, step::of(*symbol, length));
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
    std::uint64_t all() const { return m_bits; }
    // The decoding step of the next symbol, whose bits it takes.
    std::uint32_t take(code_tables tables)
    {
        std::uint32_t const entry = tables.entry(m_bits);
        skip(step::bits(entry));
        return entry;
    }

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

// The length of a match whose length code is 15: a byte, or 255 and a u16,
// at `place` in the block, which moves on behind them. 0 when the input ends
// or the u16 is below 15. Place and length are plain values, so that the bit
// reader never has its address taken and stays in registers; inlined, as a
// call costs more than its few tests.
[[gnu::always_inline]] inline std::uint32_t read_long_length(byte_view block, std::int64_t& place)
{
    std::uint8_t extra = 0;
    if (!read_u8(block, static_cast<std::uint64_t>(place), extra)) return 0;
    if (extra != 255) {
        place += 1;
        return extra + 15u;
    }
    std::uint16_t length = 0;
    if (!read_u16(block, static_cast<std::uint64_t>(place) + 1, length) || length < 15) return 0;
    place += 3;
    return length;
}

// Copies `width` bytes at a time from `src` to `dst` until `dst` reaches `end`,
// each piece taken whole before it is stored.
template <std::size_t width>
void copy_in_pieces(std::uint8_t const* src, std::uint8_t* dst, std::uint8_t const* end)
{
    do {
        std::uint8_t piece[width];
        std::memcpy(piece, src, width);
        std::memcpy(dst, piece, width);
        src += width;
        dst += width;
    } while (dst < end);
}

// Copies a match whose last wide piece still ends inside the output: in
// pieces of 16 bytes, or 8 for distances of 8 to 15, each taken from bytes
// already final. Up to 15 bytes behind the match are written before their time.
// A match of at most 8 bytes that only reads bytes before it is one narrow
// piece: a narrow load is less likely to wait on a store still in flight.
void copy_match_wide(std::uint8_t* dst, std::uint32_t distance, std::uint32_t count)
{
    if (count > 32 && count <= distance) {
        // A long match from further back than its length: the library's copy
        // moves it in the widest pieces the processor has.
        std::memcpy(dst, dst - distance, count);
        return;
    }
    bool const narrow = count <= distance ? count <= 8 : distance < 16;
    if (narrow) {
        copy_in_pieces<8>(dst - distance, dst, dst + count);
    } else {
        copy_in_pieces<16>(dst - distance, dst, dst + count);
    }
}

// Where a match ends, and false when it reaches back before the output's start.
struct match_copied {
    std::uint32_t position;
    bool ok;
};

// Copies a match of `count` bytes from `distance` back at `position`, where it
// may end anywhere in the output: in wide pieces where there is room for their
// overshoot, or else cut at the output's end.
match_copied copy_match_checked(std::uint8_t* out, std::uint32_t out_size, std::uint32_t position,
                                std::uint32_t distance, std::uint32_t count)
{
    std::uint32_t const wide_end = out_size >= 16 ? out_size - 16u : 0;
    if (position + count <= wide_end && distance <= position && (distance >= 8 || count <= distance)) {
        // Bytes behind the match are written before their time; they are
        // written again in order, or zeroed when the block stops.
        copy_match_wide(out + position, distance, count);
        return {position + count, true};
    }
    std::uint32_t const copied = std::min(count, out_size - position);
    if (copied == 0) return {position, true};
    if (distance > position) return {position, false};
    copy_match(out, position, distance, copied);
    return {position + copied, true};
}

// A match whose length code is 15: its length follows in the input, between
// the words, and its offset bits after that. Fails when the input ends first.
// Inlined, so that the bit reader keeps its place in registers.
[[gnu::always_inline]] inline match_copied copy_long_match(byte_view block, block_bit_reader& bits, std::uint32_t entry,
                                                           std::uint8_t* out, std::uint32_t out_size,
                                                           std::uint32_t position)
{
    std::int64_t place = bits.settle();
    std::uint32_t const length = read_long_length(block, place);
    if (length == 0) return {position, false};
    bits.resume_at(place);
    unsigned const offset_bits = step::offset_bits(entry);
    std::uint32_t const distance = (1u << offset_bits) + bits.peek(offset_bits);
    bits.skip(offset_bits);
    return copy_match_checked(out, out_size, position, distance, (length + 3) & 0xFFFF);
}

// Copies the match of `entry`, whose distance is `distance` unless its length
// follows in the input.
[[gnu::always_inline]] inline match_copied copy_match_of(byte_view block, block_bit_reader& bits, std::uint32_t entry,
                                                         std::uint32_t distance, std::uint8_t* out,
                                                         std::uint32_t out_size, std::uint32_t position)
{
    std::uint32_t const count = step::match_length(entry);
    return count == 0 ? copy_long_match(block, bits, entry, out, out_size, position)
                      : copy_match_checked(out, out_size, position, distance, count);
}

// The symbols of a block far from both ends of input and output, two a round
// when the first is a literal, without testing for either end: a refill
// leaves at least 48 bits, enough for a literal's code and a match's code
// with its offset bits. Returns false when a match reaches back before the
// output's start.
bool decode_far(byte_view block, code_tables tables, block_bit_reader& reader, std::uint8_t* out,
                std::uint32_t out_size, std::uint32_t& position, std::uint64_t stop)
{
    // A round makes at most a literal and a match of 17 bytes, and a refill
    // moves on by at most 3 words. It writes at most a literal and one 16-byte
    // piece itself; longer matches are copied with their own bound tests.
    constexpr std::uint32_t round_output = 1 + 17;
    constexpr std::uint32_t round_room = 1 + 16;
    constexpr std::int64_t round_input = 6;
    if (out_size < round_room || block.size < 8) return true;
    std::uint64_t const fast_stop = std::min<std::uint64_t>(stop - 1, out_size - round_room);
    std::int64_t const input_ahead = static_cast<std::int64_t>(block.size) - 8;
    // Local copies, so that they stay in registers.
    block_bit_reader bits = reader;
    std::uint32_t out_pos = position;
    bool ok = true;
    // Rounds that surely stay far from both ends; a long match may go further
    // and ends the count.
    for (;;) {
        std::uint64_t rounds = 0;
        if (out_pos < fast_stop && bits.next() <= input_ahead)
            rounds = std::min<std::uint64_t>((fast_stop - out_pos - 1) / round_output + 1,
                                             static_cast<std::uint64_t>(input_ahead - bits.next()) / round_input + 1);
        if (rounds == 0) break;
        do {
            bits.refill_ahead();
            std::uint64_t before = bits.all();
            std::uint32_t entry = bits.take(tables);
            if (!step::is_match(entry)) {
                out[out_pos++] = step::literal(entry);
                before = bits.all();
                entry = bits.take(tables);
                if (!step::is_match(entry)) {
                    out[out_pos++] = step::literal(entry);
                    continue;
                }
            }
            std::uint32_t const count = step::match_length(entry);
            std::uint32_t const distance = step::distance(entry, before);
            // `&`, not `&&`: fewer branches for the processor to guess.
            if ((count - 1 < 16) & (count <= distance) & (distance <= out_pos)) {
                // Most matches: one 16-byte piece, taken from bytes before it.
                std::uint8_t piece[16];
                std::memcpy(piece, out + out_pos - distance, sizeof piece);
                std::memcpy(out + out_pos, piece, sizeof piece);
                out_pos += count;
                continue;
            }
            match_copied const copied = copy_match_of(block, bits, entry, distance, out, out_size, out_pos);
            out_pos = copied.position;
            ok = copied.ok;
            if (!ok || count == 0) break;
        } while (--rounds != 0);
        if (!ok) break;
    }
    reader = bits;
    position = out_pos;
    return ok;
}

// Symbols until the block has made 65536 bytes, the input ends, or the output
// is full but for its last byte: the stream has no end symbol, and the
// declared size ends it one byte early, so a literal never fills that byte.
// `position` is where the block's output begins, and ends where it stopped,
// also when the block failed; `consumed` is the input the block took.
bool decode_symbols(byte_view block, code_tables tables, std::uint8_t* out, std::uint32_t out_size,
                    std::uint32_t& position, std::size_t& consumed)
{
    block_bit_reader bits(block.data, static_cast<std::int64_t>(block.size));
    // The block's 65536 bytes and the output's last byte, as output positions.
    std::uint64_t const block_end = std::uint64_t{position} + block_output;
    std::uint64_t const stop = std::min<std::uint64_t>(block_end, out_size - 1u);
    bool ok = decode_far(block, tables, bits, out, out_size, position, stop);
    // Near the ends, one symbol a round, each end tested.
    std::uint32_t out_pos = position;
    while (ok) {
        bits.refill();
        if (out_pos >= stop || !bits.input_left()) break;
        std::uint64_t const before = bits.all();
        std::uint32_t const entry = bits.take(tables);
        if (!step::is_match(entry)) {
            out[out_pos++] = step::literal(entry);
            continue;
        }
        match_copied const copied =
            copy_match_of(block, bits, entry, step::distance(entry, before), out, out_size, out_pos);
        out_pos = copied.position;
        ok = copied.ok;
        // A match that runs past the block's 65536 bytes is copied whole; the
        // next round stops there, as the position has passed `stop`.
    }
    // Nothing not produced may stay behind: those bytes read as zero. Wide
    // pieces overshoot the end of a match by less than 16 bytes, and every
    // later symbol writes on from that end.
    std::memset(out + out_pos, 0, std::min<std::uint32_t>(16, out_size - out_pos));
    position = out_pos;
    if (ok) consumed = static_cast<std::size_t>(bits.settle());
    return ok;
}

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
        std::uint32_t const to_copy = std::min(length_code + 3, block_output - (out_pos & 0xFFFF));
        // Nothing before the start of the output can be copied: the stream ends there.
        if (offset_code + 1 > out_pos) return round_start;
        std::uint32_t const copied = std::min(to_copy, output_size - out_pos);
        copy_match(out, out_pos, offset_code + 1, copied);
        out_pos += copied;
    }
    return static_cast<std::size_t>(in.position());
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

container_decompressor::container_decompressor() : m_table_size(32768) {}

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
    if (data == nullptr) size = 0;
    std::int64_t position = 0;
    // An object that already holds a table continues its output with new input.
    if (!m_table_ready || m_output_size == 0) {
        m_kind = detect_container(m_output_size, data, size);
        if (m_kind == container_none) return false;
        if (m_kind == container_xpress) {
            if (decode_plain_xpress(data, size) == 0) return false;
            if (m_output_size == block_output) {
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
    return decode_blocks(data, size, position);
}

bool container_decompressor::decode_blocks(std::uint8_t const* data, std::int32_t size, std::int64_t position)
{
    byte_view const input{data, static_cast<std::size_t>(std::max(size, 0))};
    std::int32_t block_size = static_cast<std::int32_t>(block_output);
    // A block needs more than its 256-byte table behind the position; the last
    // output byte is never decoded, so the loop stops one short of it.
    while (position >= 0 && position < size && size - position > 256 && block_size > 0 &&
           m_output_pos < m_output_size - 1) {
        if (m_kind == container_mem0) {
            // MEM0 puts the length of each block in front of it.
            std::uint32_t stored = 0;
            read_u32(input, static_cast<std::uint64_t>(position), stored);
            block_size = static_cast<std::int32_t>(stored);
            position += 4;
        } else if (m_kind == container_mam) {
            block_size = static_cast<std::int32_t>(block_output);
        } else {
            return false;
        }
        std::size_t consumed = 0;
        if (!decode_huffman_block(consumed, data + position, static_cast<std::size_t>(size - position)) ||
            consumed == 0) {
            m_block_failed = true;
            break;
        }
        position += m_kind == container_mem0 ? block_size : static_cast<std::int64_t>(consumed);
        m_consumed = static_cast<std::size_t>(std::clamp<std::int64_t>(position, 0, size));
    }
    // A failed block keeps what was made: the rest of the output stays zero.
    return true;
}

bool container_decompressor::build_code_table(std::uint8_t const* block, std::size_t length)
{
    if (block == nullptr || length < code_length_bytes) return m_table_ready;
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
            m_code_table[i] = table_entry(step::symbol(old), step::code_length(old));
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
                            count >> fast_group_bits, step::of(symbol, bits));
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
    // Only a first table can fail: a later deficient one runs on the old tail.
    if (limit > 0 && filled == limit) m_table_ready = true;
    return m_table_ready;
}

bool container_decompressor::decode_huffman_block(std::size_t& consumed, std::uint8_t const* block, std::size_t length)
{
    consumed = 0;
    if (!build_code_table(block, length)) return false;
    if (block == nullptr) length = 0;
    if (m_code_table.size() < (std::size_t{1} << max_code_bits) || m_code_lengths.size() < symbol_count ||
        m_fast_table.size() < (std::size_t{1} << fast_bits))
        return false;
    code_tables const tables{m_fast_table.data(), m_code_table.data()};
    return decode_symbols(byte_view{block, length}, tables, m_output.data(), m_output_size, m_output_pos, consumed);
}

std::size_t container_decompressor::decode_plain_xpress(std::uint8_t const* data, std::int32_t size)
{
    if (detect_container(m_output_size, data, size) != container_xpress) return 0;
    if (m_output_size > block_output) return 0;
    plain_reader in(data, size);
    try {
        m_output.assign(block_output, 0);
    } catch (std::bad_alloc const&) {
        return 0;
    }
    // A stream of exactly the output's length is stored uncompressed.
    if (in.length() == block_output || in.length() == m_output_size) return in.copy_stored(m_output.data());
    return decode_plain_tokens(in, m_output.data(), m_output_size);
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
