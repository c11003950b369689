#pragma once
// Test-side writer of the Windows 10 compressed containers: LZ77+Huffman
// blocks packed as "MAM" or "MEM0", and Plain LZ77 (or stored bytes) packed
// behind 0x81 0x81 "xpress". Streams are built from a token list, so a test
// can state exactly which literals and matches a stream holds.
#include <cstdint>
#include <vector>

using byte_vec = std::vector<std::uint8_t>;

// A literal byte (length 0), or a copy of `length` bytes from `distance` back.
struct lz_token {
    std::uint32_t length = 0;
    std::uint32_t distance = 0;
    std::uint8_t literal = 0;
};

lz_token lz_literal(std::uint8_t value);
lz_token lz_match(std::uint32_t length, std::uint32_t distance);
std::vector<lz_token> lz_literals(char const* text);

// What a byte-by-byte decoder makes of the tokens.
byte_vec apply_tokens(std::vector<lz_token> const& tokens);

struct lz_parse_options {
    std::uint32_t max_distance = 65535;
    std::uint32_t max_length = 65535;
    // No match runs across a multiple of 65536 output bytes.
    bool block_aligned = true;
};

// A greedy hash-chain parse of the data.
std::vector<lz_token> lz_parse(byte_vec const& data, lz_parse_options const& options = {});

// Splits tokens into Huffman blocks where the decoder ends them: at 65536
// output bytes, or right after a match that runs past that mark.
std::vector<std::vector<lz_token>> split_blocks(std::vector<lz_token> const& tokens);

// Complete canonical code lengths of at most 15 bits for the 512 symbols
// that the tokens use.
std::vector<std::uint8_t> huffman_code_lengths(std::vector<lz_token> const& tokens);
// One block: the 256-byte table of `code_lengths`, then the bit stream.
// Empty if a token needs a symbol without a code.
byte_vec huffman_block(std::vector<lz_token> const& tokens, std::vector<std::uint8_t> const& code_lengths);
byte_vec huffman_block(std::vector<lz_token> const& tokens);

// Headers around ready blocks. MAM blocks follow each other; each MEM0 block
// is preceded by its size, and `padding` zero bytes follow each block.
byte_vec mam_container(std::vector<byte_vec> const& blocks, std::uint32_t output_size, std::uint8_t fourth = 0x04);
byte_vec mem0_container(std::vector<byte_vec> const& blocks, std::uint32_t output_size, std::uint32_t padding = 0);

// Whole containers of data. The last stream gets a few zero bytes of
// trailer, since the decoder stops reading once all input is in its buffer.
// Padding behind the last block, as a real stream has.
byte_vec with_trailer(byte_vec container);
byte_vec encode_mam(byte_vec const& data, lz_parse_options const& options = {});
byte_vec encode_mem0(byte_vec const& data, std::uint32_t padding = 0);

// Plain LZ77: flag words, literals, match words and length escapes.
byte_vec plain_lz77_stream(std::vector<lz_token> const& tokens);
// The 32-byte header, then the stream padded to the `stream_length` the length
// word announces. `stream_length` 0 picks the smallest one that holds the
// stream and isn't read as stored.
byte_vec xpress_container(byte_vec const& stream, std::uint8_t size_code = 15, std::uint32_t stream_length = 0);
byte_vec encode_xpress(byte_vec const& data);
