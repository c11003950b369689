#include "prefetch/prefetch_header.h"

#include <algorithm>
#include <array>

namespace {

// Windows 8 and 10 keep eight run times at 128..184. The slot at 128 is only
// ever a candidate for the last run; the seven behind it are the previous runs.
constexpr std::uint64_t first_run_slot = 128;
constexpr std::uint64_t first_prev_run_slot = 136;
constexpr std::uint64_t run_slot_end = 192;

constexpr std::array<prefetch_layout, 9> known_layouts{{
    {17, true, 0, "WinXP Prefetch", 40, last_run_rule::single_slot, 144, 120, false, 0},
    {23, true, 0, "Vista/Win7 Prefetch", 104, last_run_rule::single_slot, 152, 128, false, 32},
    {26, true, 0, "Win8 Prefetch", 104, last_run_rule::newest_slot, 208, 0, true, 32},
    {30, false, 304, "Win10 Prefetch", 96, last_run_rule::newest_slot, 208, 0, true, 32},
    {30, false, 296, "Win10 Prefetch", 96, last_run_rule::newest_slot, 200, 0, true, 32},
    // A Windows 10 or 11 file with a metrics offset of neither sublayout: no run
    // count is trusted, but the run-time slots are still harvested.
    {30, true, 0, "Win10 Prefetch", 96, last_run_rule::none, 0, 0, true, 32},
    // Windows 11 writes version 31 in the layout of version 30.
    {31, false, 304, "Win11 Prefetch", 96, last_run_rule::newest_slot, 208, 0, true, 32},
    {31, false, 296, "Win11 Prefetch", 96, last_run_rule::newest_slot, 200, 0, true, 32},
    {31, true, 0, "Win11 Prefetch", 96, last_run_rule::none, 0, 0, true, 32},
}};

constexpr prefetch_layout unknown_layout{0, true, 0, "Prefetch", 40, last_run_rule::none, 0, 0, false, 0};

bool has_signature(byte_view header)
{
    static constexpr std::uint8_t scca[4] = {'S', 'C', 'C', 'A'};
    for (std::uint64_t i = 0; i < 4; ++i) {
        std::uint8_t byte = 0;
        if (!read_u8(header, pf_header::signature + i, byte) || byte != scca[i]) return false;
    }
    return true;
}

std::uint64_t newest_run_slot(byte_view header)
{
    std::uint64_t newest = 0;
    for (std::uint64_t offset = first_run_slot; offset < run_slot_end; offset += 8) {
        std::uint64_t slot = 0;
        if (read_u64(header, offset, slot)) newest = std::max(newest, slot);
    }
    return newest;
}

} // namespace

prefetch_layout const& find_layout(byte_view header)
{
    std::uint32_t version = 0;
    std::uint32_t metrics_offset = 0;
    read_u32(header, pf_header::format_version, version);
    read_u32(header, pf_header::metrics_offset, metrics_offset);
    for (auto const& row : known_layouts) {
        if (row.version == version && (row.any_metrics_offset || row.metrics_offset == metrics_offset)) return row;
    }
    return unknown_layout;
}

bool is_prefetch_buffer(std::uint8_t const* data, std::int32_t size)
{
    if (data == nullptr || size < static_cast<std::int32_t>(pf_header::minimum_size)) return false;
    return has_signature(byte_view{data, static_cast<std::size_t>(size)});
}

bool read_run_info(std::uint64_t& last_run, std::uint32_t& run_count, std::uint8_t const* data)
{
    last_run = 0;
    run_count = 0;
    // No length comes with the data: the caller has accepted the buffer, so
    // its first 228 bytes exist, and they hold every field read here.
    byte_view const header{data, pf_header::minimum_size};
    std::uint32_t declared_size = 0;
    if (data == nullptr || !has_signature(header) || !read_u32(header, pf_header::declared_size, declared_size) ||
        declared_size < pf_header::minimum_size)
        return false;

    prefetch_layout const& layout = find_layout(header);
    std::uint64_t newest = 0;
    switch (layout.last_run) {
    case last_run_rule::none: return false;
    case last_run_rule::single_slot:
        if (!read_u64(header, layout.last_run_offset, newest)) return false;
        break;
    case last_run_rule::newest_slot: newest = newest_run_slot(header); break;
    }
    std::uint32_t count = 0;
    if (!read_u32(header, layout.run_count_offset, count)) return false;
    last_run = newest;
    run_count = count;
    return true;
}

std::wstring read_exe_name(byte_view header)
{
    std::wstring name;
    for (std::uint32_t i = 0; i < pf_header::exe_name_units; ++i) {
        std::uint16_t unit = 0;
        if (!read_u16(header, pf_header::exe_name + 2 * i, unit) || unit == 0) break;
        name.push_back(static_cast<wchar_t>(unit));
    }
    return name;
}

void harvest_prev_run_times(std::set<std::uint64_t>& prev_run_times, byte_view header)
{
    if (!find_layout(header).has_prev_run_slots || header.size <= run_slot_end) return;
    for (std::uint64_t offset = first_prev_run_slot; offset < run_slot_end; offset += 8) {
        std::uint64_t slot = 0;
        if (read_u64(header, offset, slot) && slot != 0) prev_run_times.insert(slot);
    }
}
