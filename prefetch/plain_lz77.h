#pragma once
// The Plain LZ77 stream of an "xpress" container: flag words, literal bytes,
// and match words with their length extensions, behind a 32-byte header.
#include <cstddef>
#include <cstdint>

// Decodes the stream of the container `data` into `out`, which holds 65536
// bytes, up to `output_size` bytes. A stream as long as the output is stored
// uncompressed and copied. The result is the stream position where decoding
// stopped; 0 means nothing was decoded.
std::size_t decode_plain_lz77(std::uint8_t const* data, std::int32_t size, std::uint8_t* out,
                              std::uint32_t output_size);
