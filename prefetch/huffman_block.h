#pragma once
// The symbols of one LZ77+Huffman block: literals and matches into the
// container's output, from the bit stream behind the block's code lengths.
// Every read stays inside the block's bytes and every write inside the
// output, whatever the stream holds; bytes the block did not make read as 0.
#include <cstddef>
#include <cstdint>

#include "prefetch/byte_reader.h"
#include "prefetch/huffman_bit_reader.h"
#include "prefetch/huffman_code_table.h"

// The symbols of one block, decoded in steps: each `run` goes on while the
// output stands before the place it is given, so that a reader can stop
// decoding where the bytes it wants end, and go on later if it wants more.
// Decoding in steps makes the same output as decoding in one go.
class huffman_block_decoder {
public:
    huffman_block_decoder() = default;
    // `block` begins at the block's code lengths; `position` is where its output begins.
    huffman_block_decoder(byte_view block, code_tables tables, std::uint8_t* out, std::uint32_t out_size,
                          std::uint32_t position);
    // Symbols while the output stands before `pause` (the last one may run
    // past it), until the block is over. False when a match reaches back
    // before the output's start or its length escape lies past the input.
    bool run(std::uint32_t pause);
    // Made its 65536 bytes, filled the output but for its last byte, ran out
    // of input, or failed. The stream has no end symbol: the declared size
    // ends it one byte early, so a literal never fills that byte.
    bool over() const { return m_over; }
    std::uint32_t position() const { return m_position; }
    // The input the block took, once it is over without failing.
    std::size_t consumed() const { return m_consumed; }

private:
    byte_view m_block{};
    code_tables m_tables{};
    std::uint8_t* m_out = nullptr;
    std::uint32_t m_out_size = 0;
    std::uint32_t m_position = 0;
    std::uint64_t m_stop = 0;
    block_bit_reader m_bits{nullptr, 0};
    bool m_over = true;
    std::size_t m_consumed = 0;
};
