#include "support/container_encoder.h"

#include <algorithm>
#include <bit>
#include <functional>
#include <queue>

namespace {

constexpr std::uint32_t block_output = 65536;

void put_le(byte_vec& out, std::uint32_t value, unsigned bytes)
{
    for (unsigned i = 0; i < bytes; ++i) out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

unsigned offset_bits(std::uint32_t distance) { return static_cast<unsigned>(std::bit_width(distance)) - 1; }

std::uint32_t huffman_symbol(lz_token const& token)
{
    if (token.length == 0) return token.literal;
    return 256 + (offset_bits(token.distance) << 4) + std::min<std::uint32_t>(token.length - 3, 15);
}

// Huffman code lengths of the symbols the tokens use, flattening the
// frequencies until no code is longer than 15 bits.
std::vector<std::uint8_t> code_lengths_of(std::vector<lz_token> const& tokens)
{
    std::vector<std::uint64_t> frequency(512, 0);
    for (auto const& token : tokens) ++frequency[huffman_symbol(token)];
    // A complete code needs two symbols at least.
    for (std::size_t symbol = 0; std::count(frequency.begin(), frequency.end(), 0u) > 510; ++symbol)
        frequency[symbol] += frequency[symbol] == 0 ? 1 : 0;
    for (;;) {
        using node = std::pair<std::uint64_t, std::size_t>;
        std::priority_queue<node, std::vector<node>, std::greater<node>> queue;
        std::vector<std::size_t> parent(512, 0);
        for (std::size_t symbol = 0; symbol < 512; ++symbol)
            if (frequency[symbol] != 0) queue.push({frequency[symbol], symbol});
        auto const pop = [&queue] { node const top = queue.top(); return queue.pop(), top; };
        while (queue.size() > 1) {
            node const a = pop(), b = pop();
            parent[a.second] = parent[b.second] = parent.size();
            parent.push_back(0);
            queue.push({a.first + b.first, parent.size() - 1});
        }
        std::vector<std::uint8_t> lengths(512, 0);
        bool fits = true;
        for (std::size_t symbol = 0; symbol < 512; ++symbol) {
            unsigned depth = 0;
            for (std::size_t at = symbol; frequency[symbol] != 0 && at != parent.size() - 1; at = parent[at]) ++depth;
            fits = fits && depth <= 15;
            lengths[symbol] = static_cast<std::uint8_t>(depth);
        }
        if (fits) return lengths;
        for (auto& f : frequency)
            if (f != 0) f = std::max<std::uint64_t>(1, f / 2);
    }
}

} // namespace

std::vector<byte_vec> huffman_blocks(std::vector<lz_token> const& tokens, std::vector<std::uint8_t> const& code_lengths)
{
    std::vector<byte_vec> blocks;
    std::vector<lz_token> block;
    std::uint32_t produced = 0;
    for (auto const& token : tokens) {
        block.push_back(token);
        produced += std::max<std::uint32_t>(token.length, 1);
        if (produced >= block_output) blocks.push_back(huffman_block(block, code_lengths)), block.clear(), produced = 0;
    }
    if (!block.empty()) blocks.push_back(huffman_block(block, code_lengths));
    return blocks;
}

byte_vec apply_tokens(std::vector<lz_token> const& tokens)
{
    byte_vec out;
    for (auto const& token : tokens) {
        if (token.length == 0) out.push_back(token.literal);
        for (std::uint32_t i = 0; i < token.length; ++i) out.push_back(out[out.size() - token.distance]);
    }
    return out;
}

std::vector<lz_token> lz_parse(byte_vec const& data, lz_parse_options const& options)
{
    constexpr std::size_t hash_size = 1 << 16;
    auto hash = [&data](std::size_t at) {
        return ((data[at] << 16 | data[at + 1] << 8 | data[at + 2]) * 2654435761u) >> 16 & (hash_size - 1);
    };
    std::vector<std::int64_t> head(hash_size, -1);
    std::vector<std::int64_t> previous(data.size(), -1);
    std::vector<lz_token> tokens;
    for (std::size_t at = 0; at < data.size();) {
        std::size_t limit = std::min<std::size_t>(65535, data.size() - at);
        if (options.block_aligned) limit = std::min<std::size_t>(limit, block_output - at % block_output);
        std::size_t best_length = 1;
        std::size_t best_distance = 0;
        std::int64_t candidate = at + 3 <= data.size() ? head[hash(at)] : -1;
        for (int depth = 0; depth < 32 && candidate >= 0 && at - candidate <= options.max_distance; ++depth) {
            auto const from = static_cast<std::size_t>(candidate);
            std::size_t length = 0;
            while (length < limit && data[from + length] == data[at + length]) ++length;
            if (length >= 3 && length > best_length) {
                best_length = length;
                best_distance = at - from;
            }
            candidate = previous[from];
        }
        tokens.push_back(best_distance == 0 ? lz_literal(data[at])
                                            : lz_match(static_cast<std::uint32_t>(best_length),
                                                       static_cast<std::uint32_t>(best_distance)));
        for (std::size_t end = at + best_length; at < end; ++at)
            if (at + 3 <= data.size()) {
                previous[at] = head[hash(at)];
                head[hash(at)] = static_cast<std::int64_t>(at);
            }
    }
    return tokens;
}

byte_vec huffman_block(std::vector<lz_token> const& tokens, std::vector<std::uint8_t> code_lengths)
{
    if (code_lengths.empty()) code_lengths = code_lengths_of(tokens);
    byte_vec out(256, 0);
    for (std::size_t i = 0; i < 256; ++i)
        out[i] = static_cast<std::uint8_t>((code_lengths[2 * i] & 0x0F) | (code_lengths[2 * i + 1] & 0x0F) << 4);
    // Canonical codes: the first 15-bit index of a symbol's range, shifted down.
    std::vector<std::uint32_t> codes(512, 0);
    std::uint32_t next_index = 0;
    for (unsigned bits = 1; bits <= 15; ++bits)
        for (std::size_t symbol = 0; symbol < 512; ++symbol)
            if (code_lengths[symbol] == bits) {
                codes[symbol] = next_index >> (15 - bits);
                next_index += 1u << (15 - bits);
            }
    // Bits go into 16-bit words, filled from the top. The decoder loads the
    // next word once it has used the first bit of the one before, and reads
    // escape bytes from wherever its position then stands; so word n+1's slot
    // is reserved at the end of the output when word n is begun.
    std::size_t current = out.size();
    std::size_t next = current + 2;
    out.resize(out.size() + 4);
    std::uint32_t word = 0;
    unsigned count = 0;
    auto store = [&] {
        out[current] = static_cast<std::uint8_t>(word);
        out[current + 1] = static_cast<std::uint8_t>(word >> 8);
    };
    auto put = [&](std::uint32_t value, unsigned bits) {
        for (unsigned i = bits; i-- > 0; ++count) {
            if (count == 16) {
                store();
                current = next;
                next = out.size();
                out.resize(next + 2);
                word = count = 0;
            }
            word = word << 1 | ((value >> i) & 1);
        }
    };
    for (auto const& token : tokens) {
        std::uint32_t const symbol = huffman_symbol(token);
        if (code_lengths[symbol] == 0) return {};
        put(codes[symbol], code_lengths[symbol]);
        if (token.length == 0) continue;
        std::uint32_t const length = token.length - 3;
        if (length >= 15) out.push_back(static_cast<std::uint8_t>(std::min<std::uint32_t>(length - 15, 255)));
        if (length >= 15 + 255) put_le(out, length, 2);
        unsigned const bits = offset_bits(token.distance);
        put(token.distance - (1u << bits), bits);
    }
    word <<= 16 - count;
    store();
    return out;
}

byte_vec huffman_container(std::vector<byte_vec> const& blocks, std::uint32_t output_size, int mem0_padding)
{
    byte_vec out{'M', 'A', 'M', 0x04};
    if (mem0_padding >= 0) out = {'M', 'E', 'M', '0'};
    put_le(out, output_size, 4);
    for (auto const& block : blocks) {
        if (mem0_padding >= 0) put_le(out, static_cast<std::uint32_t>(block.size() + mem0_padding), 4);
        out.insert(out.end(), block.begin(), block.end());
        out.insert(out.end(), std::max(mem0_padding, 0), 0);
    }
    out.insert(out.end(), 4, 0);
    return out;
}

byte_vec encode_mam(byte_vec const& data, lz_parse_options const& options)
{
    return huffman_container(huffman_blocks(lz_parse(data, options)), static_cast<std::uint32_t>(data.size()));
}

byte_vec encode_mem0(byte_vec const& data, int padding)
{
    return huffman_container(huffman_blocks(lz_parse(data)), static_cast<std::uint32_t>(data.size()), padding);
}

byte_vec plain_lz77_stream(std::vector<lz_token> const& tokens)
{
    byte_vec out;
    std::size_t flag_slot = 0;
    std::uint32_t flags = 0;
    unsigned flag_count = 32;
    std::size_t half_byte_at = 0; // 0: no half-byte waiting for its second use
    auto store_flags = [&] {
        for (unsigned i = 0; i < 4; ++i) out[flag_slot + i] = static_cast<std::uint8_t>(flags >> (8 * i));
    };
    for (auto const& token : tokens) {
        // A flag word is written only when a token follows it.
        if (flag_count == 32) {
            if (!out.empty()) store_flags();
            flag_slot = out.size();
            out.resize(out.size() + 4);
            flags = flag_count = 0;
        }
        ++flag_count;
        if (token.length == 0) {
            out.push_back(token.literal);
            continue;
        }
        flags |= 1u << (32 - flag_count);
        std::uint32_t const length = token.length - 3;
        put_le(out, (token.distance - 1) << 3 | std::min<std::uint32_t>(length, 7), 2);
        if (length < 7) continue;
        std::uint32_t const nibble = std::min<std::uint32_t>(length - 7, 15);
        if (half_byte_at == 0) {
            half_byte_at = out.size();
            out.push_back(static_cast<std::uint8_t>(nibble));
        } else {
            out[half_byte_at] = static_cast<std::uint8_t>(out[half_byte_at] | nibble << 4);
            half_byte_at = 0;
        }
        if (nibble < 15) continue;
        out.push_back(static_cast<std::uint8_t>(std::min<std::uint32_t>(length - 22, 255)));
        if (length - 22 >= 255) put_le(out, length, 2);
    }
    if (!out.empty()) store_flags();
    return out;
}

byte_vec xpress_container(byte_vec const& stream, std::uint8_t size_code, std::uint32_t stream_length)
{
    std::uint32_t const output_size = (size_code + 1u) * 4096;
    if (stream_length == 0) {
        stream_length = std::max<std::uint32_t>(8, (static_cast<std::uint32_t>(stream.size()) + 7) & ~7u);
        // A stream of exactly the output's length would be taken as stored.
        while (stream_length == block_output || stream_length == output_size) stream_length += 8;
    }
    byte_vec out{0x81, 0x81, 'x', 'p', 'r', 'e', 's', 's', size_code};
    // The decoder takes this word shifted right by 2, plus 8, rounded down to 8.
    put_le(out, (stream_length - 8) << 2, 4);
    out.resize(32, 0);
    out.insert(out.end(), stream.begin(), stream.end());
    out.resize(std::max<std::size_t>(out.size(), 32 + std::size_t{stream_length}), 0);
    return out;
}

byte_vec encode_xpress(byte_vec const& data)
{
    return xpress_container(plain_lz77_stream(lz_parse(data, {8192, false})));
}
