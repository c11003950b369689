#pragma once
// What the two LZ77 streams of the containers share: output made in blocks
// of 65536 bytes, and matches that copy earlier output byte by byte.
#include <algorithm>
#include <cstdint>
#include <cstring>

// Each Huffman block makes this many output bytes, and the Plain LZ77 form
// always decodes into a buffer of this size.
constexpr std::uint32_t lz77_block_output = 65536;

// Copies a match of `count` bytes from `distance` back, with the result of a
// byte-by-byte copy: where source and destination overlap, the bytes repeat
// with a period of `distance`. Everything from the source to the destination
// is then a whole number of periods, so it can be copied on in one piece
// that doesn't overlap, and each piece doubles the next one.
inline void copy_match(std::uint8_t* out, std::uint32_t position, std::uint32_t distance, std::uint32_t count)
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
