#include "prefetch/file_metrics.h"

#include <algorithm>
#include <vector>

#include "prefetch/prefetch_header.h"

namespace {

// Fields of a 32-byte metrics entry (start time, duration and average
// duration come first). The file-name offset counts bytes from strings_offset.
namespace metrics_entry {
constexpr std::uint64_t file_name_offset = 12;
constexpr std::uint64_t file_reference = 24;
} // namespace metrics_entry

constexpr unsigned sequence_shift = 48;

} // namespace

void read_file_references(file_reference_map& references, byte_view buf, offset_string_map const& file_strings)
{
    std::uint32_t const entry_size = find_layout(buf).metrics_entry_size;
    std::uint32_t metrics_offset = 0, metrics_count = 0, strings_offset = 0;
    if (entry_size == 0 || !read_u32(buf, pf_header::metrics_offset, metrics_offset) ||
        !read_u32(buf, pf_header::metrics_count, metrics_count) ||
        !read_u32(buf, pf_header::strings_offset, strings_offset))
        return;
    // Entries lie one behind the other, so the first that leaves the buffer
    // ends the array, however large metrics_count claims it to be. They
    // usually follow the strings' order, but a damaged file may not: they are
    // sorted once at the end (the first of equal keys counts), never inserted
    // one by one into the middle.
    std::vector<file_reference_map::value_type> found;
    found.reserve(std::min<std::size_t>(metrics_count, file_strings.size()));
    // Entries usually name the strings in their order: the string behind the
    // last one named is tried before a search.
    auto next = file_strings.begin();
    for (std::uint64_t i = 0; i < metrics_count; ++i) {
        std::uint64_t const at = metrics_offset + i * entry_size;
        std::uint32_t name_offset = 0;
        std::uint64_t reference = 0;
        if (!buf.has(at, entry_size) || !read_u32(buf, at + metrics_entry::file_name_offset, name_offset) ||
            !read_u64(buf, at + metrics_entry::file_reference, reference))
            break;
        std::uint64_t const key = std::uint64_t{strings_offset} + name_offset;
        if (reference == 0) continue;
        if (next == file_strings.end() || (*next).first != key) next = file_strings.find(key);
        if (next == file_strings.end()) continue;
        ++next;
        found.emplace_back(key, ntfs_file_reference{reference & ((std::uint64_t{1} << sequence_shift) - 1),
                                                    static_cast<std::uint16_t>(reference >> sequence_shift)});
    }
    std::stable_sort(found.begin(), found.end(), [](auto const& a, auto const& b) { return a.first < b.first; });
    references.reserve(found.size());
    for (auto const& [key, item] : found) references.emplace(key, item);
}
