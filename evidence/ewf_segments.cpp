#include "evidence/ewf_segments.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <vector>

#include "foundation/uni_fileio.h"
#include "prefetch/byte_reader.h"

namespace {

// A segment file opens with this signature and a 13-byte header; its
// sections follow as a chain of 76-byte descriptors: a 16-byte type name,
// then the file offset of the next descriptor. The last section of the last
// segment is "done", that of every other segment "next", each pointing at
// itself.
constexpr std::array<std::uint8_t, 8> signature{'E', 'V', 'F', 0x09, 0x0d, 0x0a, 0xff, 0x00};
constexpr std::uint64_t header_size = 13;
constexpr std::uint64_t descriptor_size = 76;
// Real segments hold a few dozen sections; a longer chain is a loop.
constexpr int section_limit = 1 << 16;

enum class segment_end { not_ewf, cut_short, next, done };

segment_end read_segment_end(std::string const& path)
{
    uni::fileio file(path, /*write=*/false, /*truncate=*/false);
    std::vector<std::uint8_t> bytes;
    if (!file.is_open() || !file.read(bytes, header_size, 0) || bytes.size() < signature.size() ||
        std::memcmp(bytes.data(), signature.data(), signature.size()) != 0)
        return segment_end::not_ewf;
    std::uint64_t offset = header_size;
    for (int i = 0; i < section_limit; ++i) {
        std::uint64_t next = 0;
        if (!file.read(bytes, descriptor_size, offset) || bytes.size() < descriptor_size ||
            !read_u64({bytes.data(), bytes.size()}, 16, next))
            return segment_end::cut_short;
        std::string const type(reinterpret_cast<char const*>(bytes.data()), 4);
        if (type == "done" || type == "next") return type == "done" ? segment_end::done : segment_end::next;
        if (next <= offset) return segment_end::cut_short;
        offset = next;
    }
    return segment_end::cut_short;
}

// case.E01 -> case.E02 ... case.E99; past that the names turn to letters,
// which this check leaves to the library.
std::string next_segment(std::string const& path)
{
    std::size_t const n = path.size();
    if (n < 4 || path[n - 4] != '.' || path[n - 2] < '0' || path[n - 2] > '9' || path[n - 1] < '0' || path[n - 1] > '9')
        return {};
    int const number = (path[n - 2] - '0') * 10 + (path[n - 1] - '0') + 1;
    if (number > 99) return {};
    return path.substr(0, n - 2) + static_cast<char>('0' + number / 10) + static_cast<char>('0' + number % 10);
}

} // namespace

std::string ewf_segments_problem(std::string const& first_segment)
{
    std::string segment = first_segment;
    for (segment_end end = read_segment_end(segment); end != segment_end::done; end = read_segment_end(segment)) {
        if (end == segment_end::not_ewf)
            return segment == first_segment ? std::string() : "segment " + segment + " is missing";
        if (end == segment_end::cut_short) return "segment " + segment + " is truncated";
        segment = next_segment(segment);
        if (segment.empty()) return {};
    }
    return {};
}
