#pragma once
// Decoding of one input file: load (bytes, file-system facts, unwrapping),
// then the header and the sections into a `prefetch_entry`. The entry is
// filled as far as decoding got; on false, entry.failure says why.
#include <cstdint>
#include <string>

#include "prefetch/decode_buffers.h"
#include "prefetch/prefetch_entry.h"

// Only the first 16 MiB of an input are decoded; no Prefetch file comes near.
constexpr std::uint32_t read_limit = 0x1000000;

// Reads the first 16 MiB of the file at path (UTF-8) into buffers.file_bytes,
// with its file-system facts into the entry. Says "prob reading file" on
// standard error when nothing can be read.
bool read_prefetch_file(std::string const& path, decode_buffers& buffers, prefetch_entry& entry);
// The one step every input goes through once its bytes are read, from a file
// or from an image: the outer container unwrapped, then the Prefetch buffer.
bool decode_input_bytes(decode_buffers& buffers, prefetch_entry& entry, std::string& version_label);
// Reads the first 16 MiB of the file at path (UTF-8) into buffers, with its
// file-system facts, and decodes it. Says "prob reading file" on standard
// error when nothing can be read.
bool load_prefetch_file(std::string const& path, decode_buffers& buffers, prefetch_entry& entry,
                        std::string& version_label);
// Decodes bytes that are a Prefetch file or a container of one; a container
// unpacks into `inner`, which a batch reuses from file to file. `partial`,
// when given, is the decompressor whose output the bytes are, decoded only
// in part: it decodes on as far as the sections read reach.
bool decode_prefetch_buffer(std::uint8_t const* data, std::uint32_t size, container_decompressor& inner,
                            prefetch_entry& entry, std::string& version_label, decode_wants const& wants = {},
                            container_decompressor* partial = nullptr);
