#include "prefetch/section_tables.h"

#include <algorithm>
#include <array>
#include <exception>
#include <string_view>

#include "foundation/vlm_string.h"
#include "prefetch/container_decompressor.h"
#include "prefetch/prefetch_header.h"

namespace {

// Fields of a volume record; the same offsets in every layout.
namespace volume_record {
constexpr std::uint64_t device_path_offset = 0;
constexpr std::uint64_t creation_time = 8;
constexpr std::uint64_t serial_number = 16;
constexpr std::uint64_t file_refs_size = 24;
constexpr std::uint64_t directory_count = 32;
constexpr std::size_t kept_bytes = 40;
} // namespace volume_record

// Bytes of UTF-8 room made for each name ahead: enough for most paths.
constexpr std::size_t usual_name_length = 64;

// Text of the file's UTF-16LE units, each unit one character as it stands
// (surrogates are not combined).
std::string unit_text(byte_view units) { return utf16le_to_utf8({units.data, units.size}); }

// The same text, added to a map under the key.
void emplace_unit_text(offset_string_map& map, std::uint64_t key, byte_view units)
{
    map.emplace_with(key, [units](std::string& text) { append_utf16le_as_utf8(text, {units.data, units.size}); });
}

// The units from pos up to a zero unit. pos ends behind the zero unit, or at
// the last whole unit of the buffer when there is none.
byte_view read_terminated_units(byte_view buf, std::uint64_t& pos, bool& terminated)
{
    byte_view const units = read_units_to_zero(buf, pos, terminated);
    pos += units.size + (terminated ? 2 : 0);
    return units;
}

// read_terminated_units over the bytes `partial` has made final, decoding on
// while the string runs to their end: the zero unit that ends it may not be
// decoded yet. Each step decodes a few strings' worth more, or as much again
// as the string has run so far, so that a string as long as the buffer is
// scanned a few times over, not once for every step.
byte_view read_final_units(byte_view buf, std::uint64_t& pos, bool& terminated, container_decompressor* partial)
{
    constexpr std::uint64_t least_step = 4096;
    for (;;) {
        std::uint64_t const final_end =
            partial != nullptr ? std::min<std::uint64_t>(partial->final_end(), buf.size) : buf.size;
        std::uint64_t next = pos;
        byte_view const units =
            read_terminated_units(byte_view{buf.data, static_cast<std::size_t>(final_end)}, next, terminated);
        if (terminated || final_end >= buf.size) {
            pos = next;
            return units;
        }
        std::uint64_t const run = final_end > pos ? final_end - pos : 0;
        std::uint64_t const wanted = std::min<std::uint64_t>(std::max(final_end, pos) + std::max(least_step, run), buf.size);
        partial->decode_to(static_cast<std::uint32_t>(wanted));
    }
}

std::uint64_t align8(std::uint64_t pos) { return (pos + 7) & ~std::uint64_t{7}; }

// Directory strings: a u16 length, that many units, and a zero unit that is
// stepped over. Zero length words in front of a string are skipped. `pos`
// ends where the reading stopped, whether the strings are kept or not.
offset_string_map read_directories(byte_view buf, std::uint64_t& pos, std::uint32_t directory_count, bool keep)
{
    offset_string_map dirs;
    try {
        for (std::uint32_t ordinal = 0; pos < buf.size && ordinal < directory_count;) {
            std::uint16_t length = 0;
            do {
                if (!read_u16(buf, pos, length)) return dirs;
                pos += 2;
            } while (length == 0);
            std::uint64_t const end = pos + 2 * std::uint64_t{length};
            if (end > buf.size) break;
            byte_view units;
            read_bytes(buf, pos, end - pos, units);
            ++ordinal;
            if (keep) emplace_unit_text(dirs, ordinal, units);
            pos = end + 2;
        }
    } catch (std::exception const&) {
        // Out of memory while building a string: keep what the list has.
    }
    return dirs;
}

// Records may point their path and directories at the same bytes, so a small
// file could make every one of thousands of volumes read megabytes of strings
// again. In a sound file the strings of different volumes never overlap, so
// all of them together lie within the buffer: the bytes scanned for volume
// strings are limited to the buffer's size, and a read that meets the limit
// stops there as it would at the end of the buffer.
struct scan_budget {
    std::uint64_t left;

    // The part of the buffer that a read from pos may still scan.
    byte_view window(byte_view buf, std::uint64_t pos) const
    {
        return byte_view{buf.data, pos < buf.size ? pos + std::min<std::uint64_t>(left, buf.size - pos) : buf.size};
    }
    void charge(std::uint64_t from, std::uint64_t to) { left -= std::min(left, to > from ? to - from : 0); }
};

// One volume record and its strings. False ends the list of volumes.
bool decode_volume(prefetch_entry& entry, byte_view buf, std::uint32_t volumes_offset, std::uint64_t record_offset,
                   scan_budget& budget, bool keep_directories)
{
    if (!buf.has(record_offset, volume_record::kept_bytes)) return false;
    std::array<std::uint8_t, volume_record::kept_bytes> record{};
    std::copy_n(buf.data + record_offset, record.size(), record.begin());
    byte_view const fields{record.data(), record.size()};

    std::uint32_t device_path_offset = 0, serial = 0, file_refs_size = 0, directory_count = 0;
    std::uint64_t creation_time = 0;
    read_u32(fields, volume_record::device_path_offset, device_path_offset);
    read_u64(fields, volume_record::creation_time, creation_time);
    read_u32(fields, volume_record::serial_number, serial);
    read_u32(fields, volume_record::file_refs_size, file_refs_size);
    read_u32(fields, volume_record::directory_count, directory_count);

    // The path offset counts from the section and wraps as a 32-bit sum.
    std::uint32_t const path_pos = volumes_offset + device_path_offset;
    if (device_path_offset == 0 || path_pos > buf.size || budget.left == 0) return false;

    entry.volume_records.push_back(record);
    std::uint64_t pos = path_pos;
    bool terminated = false;
    byte_view const path = read_terminated_units(budget.window(buf, pos), pos, terminated);
    budget.charge(path_pos, pos);
    entry.volume_serials.push_back(serial);
    entry.volume_paths.push_back(unit_text(path));
    entry.volume_times.push_back(creation_time);
    entry.entry_times.insert(creation_time);

    // Path, file references and directory strings each start on a multiple
    // of 8 counted from the start of the file, not of the section.
    pos = align8(align8(pos) + file_refs_size);
    std::uint64_t const dirs_pos = pos;
    try {
        entry.volume_dirs.push_back(read_directories(budget.window(buf, pos), pos, directory_count, keep_directories));
        budget.charge(dirs_pos, pos);
    } catch (std::exception const&) {
        // Out of memory: the volume stays, the next one follows.
    }
    return true;
}

// The strings that decode_file_strings will take, so that room for all of
// them is made at once: as many as metrics_count says where the units could
// hold them, otherwise counted.
std::size_t count_strings(byte_view buf, std::uint64_t pos, std::uint32_t metrics_count)
{
    std::uint64_t const units = pos < buf.size ? (buf.size - pos) / 2 : 0;
    if (metrics_count != 0 && metrics_count <= units) return metrics_count;
    std::size_t count = 0;
    for (bool terminated = true; terminated && count != metrics_count;) {
        read_terminated_units(buf, pos, terminated);
        count += terminated ? 1 : 0;
    }
    return count;
}

std::wstring widen_units(byte_view units)
{
    std::wstring wide(units.size / 2, L'\0');
    std::uint16_t unit = 0;
    for (std::size_t i = 0; i < wide.size() && read_u16(units, 2 * i, unit); ++i) wide[i] = static_cast<wchar_t>(unit);
    return wide;
}

// Looks for the header's name among the strings, as a run of whole UTF-16
// units, until the first hit. A name with an element that no unit can hold
// is in no string.
class unit_search {
public:
    explicit unit_search(std::wstring const& name)
    {
        for (wchar_t c : name) {
            if (c < 0 || c > 0xFFFF) m_searching = false;
            m_pattern.push_back(static_cast<char>(c & 0xFF));
            m_pattern.push_back(static_cast<char>((c >> 8) & 0xFF));
        }
    }

    bool searching() const { return m_searching; }
    bool found_in(byte_view units)
    {
        if (!m_searching) return false;
        std::string_view const text(reinterpret_cast<char const*>(units.data), units.size);
        // A byte match counts only where it starts on a unit.
        for (std::size_t at = text.find(m_pattern); at != std::string_view::npos; at = text.find(m_pattern, at + 1)) {
            if (at % 2 == 0) {
                m_searching = false;
                return true;
            }
        }
        return false;
    }

private:
    std::string m_pattern;
    bool m_searching = true;
};

} // namespace

bool decode_file_strings(offset_string_map& file_strings, std::wstring& exe_name_wide, std::uint8_t const* data,
                         std::uint32_t size, bool keep_names, container_decompressor* partial)
{
    if (!is_prefetch_buffer(data, static_cast<std::int32_t>(size))) return false;
    byte_view const buf{data, size};
    std::uint32_t strings_offset = 0, metrics_count = 0;
    read_u32(buf, pf_header::strings_offset, strings_offset);
    read_u32(buf, pf_header::metrics_count, metrics_count);
    if (strings_offset > size) return false;

    // metrics_count says how many strings to take; 0 or too many reads on to
    // the end of the buffer. A string without its zero unit is dropped.
    if (keep_names) {
        // Text for names of a usual length, never more than the units left could make.
        std::size_t const count = count_strings(buf, strings_offset, metrics_count);
        file_strings.reserve(count, std::min<std::size_t>(count * usual_name_length, (size - strings_offset) / 2));
    }
    unit_search search(exe_name_wide);
    std::uint64_t pos = strings_offset;
    for (std::uint32_t ordinal = 1;; ++ordinal) {
        std::uint64_t const key = pos;
        bool terminated = false;
        byte_view const units = read_final_units(buf, pos, terminated, partial);
        if (!terminated) break;
        // The first string that contains the header's name, case and all, is
        // the executable's path. An empty name is contained in every string.
        if (search.found_in(units)) exe_name_wide = widen_units(units);
        if (keep_names) emplace_unit_text(file_strings, key, units);
        else if (!search.searching()) break; // the path is all that is wanted of them
        if (metrics_count == ordinal) break;
    }
    return true;
}

bool volumes_in_buffer(std::uint8_t const* data, std::uint32_t size)
{
    if (!is_prefetch_buffer(data, static_cast<std::int32_t>(size))) return false;
    std::uint32_t volumes_offset = 0;
    read_u32(byte_view{data, size}, pf_header::volumes_offset, volumes_offset);
    return volumes_offset <= size;
}

bool decode_volumes(prefetch_entry& entry, std::uint8_t const* data, std::uint32_t size, bool keep_directories)
{
    if (!volumes_in_buffer(data, size)) return false;
    byte_view const buf{data, size};
    std::uint32_t volumes_offset = 0;
    read_u32(buf, pf_header::volumes_offset, volumes_offset);

    // The header's volume count is not trusted: the records end where the
    // first device path begins, so that offset tells how many there are.
    auto const record_size = static_cast<std::int32_t>(find_layout(buf).volume_record_size);
    std::uint32_t first_path_offset = 0;
    if (!read_u32(buf, volumes_offset, first_path_offset)) return true;
    std::int32_t const count = static_cast<std::int32_t>(first_path_offset) / record_size;
    scan_budget budget{size};
    for (std::int32_t i = 0; i < count; ++i) {
        std::uint64_t const record_offset = volumes_offset + std::uint64_t(i) * std::uint64_t(record_size);
        if (!decode_volume(entry, buf, volumes_offset, record_offset, budget, keep_directories)) break;
    }
    return true;
}
