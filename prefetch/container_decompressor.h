#pragma once
// Windows 10 and 11 keep Prefetch files in compressed containers: "MAM" and "MEM0"
// hold LZ77+Huffman blocks, 0x81 0x81 "xpress" a Plain LZ77 stream. This unit
// reads the headers, runs the blocks one after another into one output of the
// declared size (at most 16 MiB), and leaves the streams to their own units.
#include <cstdint>
#include <string>
#include <vector>

#include "prefetch/huffman_block.h"
#include "prefetch/huffman_code_table.h"

enum container_kind : std::uint32_t {
    container_none = 0,
    container_mem0 = 2,
    container_mam = 3,
    container_xpress = 4,
};

// The container kind of the bytes (0 when none), and its declared output size.
std::uint32_t detect_container(std::uint32_t& output_size, std::uint8_t const* data, std::int32_t size);
std::uint32_t detect_container(std::uint32_t& output_size, std::vector<std::uint8_t> const& data);

class container_decompressor {
public:
    container_decompressor();

    // Makes the object fresh for another container, keeping its storage.
    void reset();
    // Frees an output buffer larger than `kept` bytes.
    void trim(std::size_t kept);
    bool decompress_container(std::uint8_t const* data, std::int32_t size);
    bool decompress_container(std::vector<std::uint8_t> const& data);
    // The same, stopping at the first block after which `wanted` bytes of
    // output are final; `decode_to` carries on, while the input given here
    // is still there. The output keeps its declared size; what is not yet
    // decoded reads as zero.
    bool decompress_container(std::uint8_t const* data, std::int32_t size, std::uint32_t wanted);
    // Decodes on until `end` bytes are final, or the blocks end; returns final_end().
    std::uint32_t decode_to(std::uint32_t end);
    // The output bytes that decoding further will not change: all of them
    // once the blocks have ended, for whatever reason.
    std::uint32_t final_end() const;
    bool write_output_file(std::string const& path);

    std::vector<std::uint8_t> const& output() const { return m_output; }
    std::vector<std::uint8_t>& output() { return m_output; }
    std::uint32_t kind() const { return m_kind; }
    bool table_ready() const { return m_table_ready; }
    // How far the last Huffman container got: the input bytes its blocks
    // took (the 8-byte header included), the output bytes made, and whether
    // a block failed or took nothing, which ended the loop early.
    std::size_t consumed() const { return m_consumed; }
    std::uint32_t produced() const { return m_output_pos; }
    bool block_failed() const { return m_block_failed; }

private:
    // Builds the block's table and sets its symbols up to be decoded.
    bool start_huffman_block(std::uint8_t const* block, std::size_t length);
    std::size_t decode_plain_xpress(std::uint8_t const* data, std::int32_t size);
    // Runs the Huffman blocks of kinds 2 and 3 from `position` on, until
    // m_wanted bytes are final; `block_size` is the last block's (MEM0 ends
    // at one of 0).
    bool decode_blocks(std::uint8_t const* data, std::int32_t size, std::int64_t position, std::int32_t block_size);

    std::uint32_t m_kind = 0;
    std::uint32_t m_output_size = 0;
    huffman_code_table m_table; // of the block in hand; a damaged one keeps the last one's tail
    std::vector<std::uint8_t> m_output;
    std::uint32_t m_output_pos = 0;
    bool m_table_ready = false;
    std::size_t m_consumed = 0;
    bool m_block_failed = false;
    huffman_block_decoder m_block; // the block in hand while it is not over
    // Where the blocks stopped before their end, to go on from (the start of
    // the block in hand, if any); -1 once they ended.
    std::uint8_t const* m_input = nullptr;
    std::int32_t m_input_size = 0;
    std::int64_t m_resume_position = -1;
    std::int32_t m_resume_block_size = 0;
    std::uint32_t m_wanted = 0;
};
