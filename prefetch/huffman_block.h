#pragma once
// The symbols of one LZ77+Huffman block: literals and matches into the
// container's output, from the bit stream behind the block's code lengths.
// Every read stays inside the block's bytes and every write inside the
// output, whatever the stream holds; bytes the block did not make read as 0.
#include <cstddef>
#include <cstdint>

#include "prefetch/byte_reader.h"
#include "prefetch/huffman_code_table.h"

// Symbols until the block has made 65536 bytes, the input ends, or the output
// is full but for its last byte: the stream has no end symbol, and the
// declared size ends it one byte early, so a literal never fills that byte.
// `position` is where the block's output begins, and ends where it stopped,
// also when the block failed; `consumed` is the input the block took. False
// when a match reaches back before the output's start or its length escape
// lies past the input.
bool decode_huffman_symbols(byte_view block, code_tables tables, std::uint8_t* out, std::uint32_t out_size,
                            std::uint32_t& position, std::size_t& consumed);
