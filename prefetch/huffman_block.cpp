#include "prefetch/huffman_block.h"

#include <algorithm>
#include <cstring>

#include "prefetch/huffman_bit_reader.h"
#include "prefetch/lz77_match.h"

namespace {

// The decoding step of the next symbol, whose bits it takes.
[[gnu::always_inline]] inline std::uint32_t take_step(block_bit_reader& bits, code_tables tables)
{
    std::uint32_t const entry = tables.entry(bits.all());
    bits.skip(huffman_step::bits(entry));
    return entry;
}

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
    unsigned const offset_bits = huffman_step::offset_bits(entry);
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
    std::uint32_t const count = huffman_step::match_length(entry);
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
            std::uint32_t entry = take_step(bits, tables);
            if (!huffman_step::is_match(entry)) {
                out[out_pos++] = huffman_step::literal(entry);
                before = bits.all();
                entry = take_step(bits, tables);
                if (!huffman_step::is_match(entry)) {
                    out[out_pos++] = huffman_step::literal(entry);
                    continue;
                }
            }
            std::uint32_t const count = huffman_step::match_length(entry);
            std::uint32_t const distance = huffman_step::distance(entry, before);
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

} // namespace

huffman_block_decoder::huffman_block_decoder(byte_view block, code_tables tables, std::uint8_t* out,
                                             std::uint32_t out_size, std::uint32_t position)
    : m_block(block), m_tables(tables), m_out(out), m_out_size(out_size), m_position(position),
      // The block's 65536 bytes and the output's last byte, as output positions.
      m_stop(std::min<std::uint64_t>(std::uint64_t{position} + lz77_block_output, out_size - 1u)),
      m_bits(block.data, static_cast<std::int64_t>(block.size)), m_over(false)
{
}

bool huffman_block_decoder::run(std::uint32_t pause)
{
    if (m_over) return true;
    // Each symbol is decoded when it starts before the limit, whether the
    // block stops there or only pauses: so pausing changes nothing.
    std::uint64_t const limit = std::min<std::uint64_t>(m_stop, pause);
    // A pause may come after symbols of a damaged table that take no bits,
    // with all 64 bits held: the near loop then goes on alone.
    bool ok = m_bits.full() || decode_far(m_block, m_tables, m_bits, m_out, m_out_size, m_position, limit);
    // Near the ends, one symbol a round, each end tested.
    std::uint32_t out_pos = m_position;
    bool input_ended = false;
    while (ok && out_pos < limit) {
        // No refill before a pause: it may leave all 64 bits held.
        m_bits.refill();
        if (!m_bits.input_left()) {
            input_ended = true;
            break;
        }
        std::uint64_t const before = m_bits.all();
        std::uint32_t const entry = take_step(m_bits, m_tables);
        if (!huffman_step::is_match(entry)) {
            m_out[out_pos++] = huffman_step::literal(entry);
            continue;
        }
        match_copied const copied = copy_match_of(m_block, m_bits, entry, huffman_step::distance(entry, before),
                                                  m_out, m_out_size, out_pos);
        out_pos = copied.position;
        ok = copied.ok;
        // A match that runs past the block's 65536 bytes is copied whole; the
        // next round stops there, as the position has passed `stop`.
    }
    // Nothing not produced may stay behind: those bytes read as zero. Wide
    // pieces overshoot the end of a match by less than 16 bytes, and every
    // later symbol writes on from that end.
    std::memset(m_out + out_pos, 0, std::min<std::uint32_t>(16, m_out_size - out_pos));
    m_position = out_pos;
    m_over = !ok || input_ended || out_pos >= m_stop;
    if (m_over && ok) m_consumed = static_cast<std::size_t>(m_bits.settle());
    return ok;
}
