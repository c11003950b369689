#pragma once
// Test-side writer of the containers: LZ77+Huffman in "MAM" or "MEM0", Plain LZ77 or stored bytes
// behind 0x81 0x81 "xpress". Streams are built from token lists, so a test states what they hold.
#include <cstdint>
#include <vector>

using byte_vec = std::vector<std::uint8_t>;

// A literal byte (length 0), or a copy of `length` bytes from `distance` back.
struct lz_token {
    std::uint32_t length = 0;
    std::uint32_t distance = 0;
    std::uint8_t literal = 0;
};
inline lz_token lz_literal(std::uint8_t value) { return lz_token{0, 0, value}; }
inline lz_token lz_match(std::uint32_t length, std::uint32_t distance) { return lz_token{length, distance, 0}; }
// What a byte-by-byte decoder makes of the tokens.
byte_vec apply_tokens(std::vector<lz_token> const& tokens);

struct lz_parse_options {
    std::uint32_t max_distance = 65535;
    bool block_aligned = true; // no match runs across a multiple of 65536 output bytes
};
// A greedy hash-chain parse of the data.
std::vector<lz_token> lz_parse(byte_vec const& data, lz_parse_options const& options = {});

// One block: the 256-byte table of the 512 `code_lengths` (none given: a
// complete code of at most 15 bits), then the bit stream. Empty if a token's
// symbol has no code.
byte_vec huffman_block(std::vector<lz_token> const& tokens, std::vector<std::uint8_t> code_lengths = {});
// The tokens cut where the decoder ends a block (at 65536 output bytes, or right after a match that
// runs past that mark), each cut made into a block with the same `code_lengths`.
std::vector<byte_vec> huffman_blocks(std::vector<lz_token> const& tokens, std::vector<std::uint8_t> const& code_lengths = {});
// MAM blocks follow each other; with `mem0_padding` >= 0 each MEM0 block is preceded by its size and
// followed by that many zero bytes. Four zero bytes end it, as in a real stream: the decoder stops
// once its position reaches the end of the input, with symbols left in its bit buffer.
byte_vec huffman_container(std::vector<byte_vec> const& blocks, std::uint32_t output_size, int mem0_padding = -1);
byte_vec encode_mam(byte_vec const& data, lz_parse_options const& options = {});
byte_vec encode_mem0(byte_vec const& data, int padding = 0);

// Plain LZ77: flag words, literals, match words and length escapes.
byte_vec plain_lz77_stream(std::vector<lz_token> const& tokens);
// The 32-byte header, then the stream padded to the `stream_length` the header
// announces; 0 picks the smallest one that holds the stream and isn't read as stored.
byte_vec xpress_container(byte_vec const& stream, std::uint8_t size_code = 15, std::uint32_t stream_length = 0);
byte_vec encode_xpress(byte_vec const& data);
