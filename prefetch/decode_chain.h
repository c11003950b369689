#pragma once
// The chain for one input file: load (bytes, file-system facts, unwrapping),
// decode (header and sections into the entry), then one writer.
#include <cstdint>
#include <ostream>

class kito_user_context;

// Decode context.m_file_path and write one report. Never lets an exception pass.
bool output_prefetch_entry(std::ostream& out, kito_user_context& context);
// The writer the format options choose, over the entry decoded last; `decoded`
// says whether decoding succeeded (only the JSON form reports a failure).
bool write_prefetch_report(std::ostream& out, kito_user_context& context, bool decoded);
bool load_prefetch_file(kito_user_context& context);
bool decode_prefetch_buffer(std::uint8_t const* data, std::uint32_t size, kito_user_context& context);
void reset_decoded_entry(kito_user_context& context);
