#pragma once
// The fixed header of a plain (already unwrapped) Prefetch buffer: acceptance,
// the layout chosen by the version word, the executable's name, the run count,
// the last-run time and the previous-run slots.
#include <cstdint>
#include <set>
#include <string>

#include "prefetch/byte_reader.h"

// Offsets of the header fields shared by every layout.
namespace pf_header {
constexpr std::uint64_t format_version = 0;
constexpr std::uint64_t signature = 4;
constexpr std::uint64_t declared_size = 12;
constexpr std::uint64_t exe_name = 16;
constexpr std::uint32_t exe_name_units = 30; // 60 bytes, ending at offset 76
constexpr std::uint64_t prefetch_hash = 76;
constexpr std::uint64_t metrics_offset = 84;
constexpr std::uint64_t metrics_count = 88;
constexpr std::uint64_t strings_offset = 100;
constexpr std::uint64_t volumes_offset = 108;
// Every offset the header readers touch lies below this; shorter buffers are refused.
constexpr std::uint32_t minimum_size = 228;
} // namespace pf_header

// How the last-run time is found.
enum class last_run_rule {
    none,        // not known for this layout: run count and last run stay 0
    single_slot, // one u64 at last_run_offset
    newest_slot, // the largest of the eight run-time slots at 128..184
};

// One row per known layout. Versions 30 and 31 have three rows each, told apart by the
// metrics offset: Windows 10 moved the run count between two sublayouts, and
// Windows 11 kept both.
struct prefetch_layout {
    std::uint32_t version;
    bool any_metrics_offset;      // the row ignores metrics_offset
    std::uint32_t metrics_offset; // else the row needs exactly this value
    char const* label;
    std::uint32_t volume_record_size;
    last_run_rule last_run;
    std::uint32_t run_count_offset;
    std::uint32_t last_run_offset;
    bool has_prev_run_slots;
    // Size of a file metrics entry that ends in an NTFS file reference; 0 where
    // the entries carry none (XP's 20-byte entries, unknown layouts).
    std::uint32_t metrics_entry_size;
};

// The row for the buffer's version word and metrics offset; an unknown
// version gets the generic "Prefetch" row. The buffer must hold 228 bytes.
prefetch_layout const& find_layout(byte_view header);

// Null, shorter than 228 bytes (signed), or without "SCCA" at offset 4: false.
bool is_prefetch_buffer(std::uint8_t const* data, std::int32_t size);

// Zeroes both outputs, then fills them from the header of a buffer that has
// passed is_prefetch_buffer. False when the layout has no run information
// or the declared file size is below 228.
bool read_run_info(std::uint64_t& last_run, std::uint32_t& run_count, std::uint8_t const* data);

// The executable's name: up to 30 UTF-16 units, each widened as it stands,
// ending at the first zero unit.
std::wstring read_exe_name(byte_view header);

// The non-zero previous-run slots (136..184) of the Windows 8 and 10 layouts.
void harvest_prev_run_times(std::set<std::uint64_t>& prev_run_times, byte_view header);
