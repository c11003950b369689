#include "prefetch/evidence_guard.h"

#include <cstring>
#include <vector>

#include "foundation/uni_fileio.h"

namespace {

// Enough for the longest of the marks below.
constexpr std::uint32_t head_size = 8;

bool has_bytes(byte_view head, std::uint64_t offset, char const* mark, std::size_t length)
{
    return head.has(offset, length) && std::memcmp(head.data + offset, mark, length) == 0;
}

} // namespace

bool begins_like_evidence(byte_view head)
{
    return has_bytes(head, 4, "SCCA", 4) || has_bytes(head, 0, "MAM", 3) || has_bytes(head, 0, "MEM0", 4) ||
           has_bytes(head, 0, "\x81\x81xpress", 8);
}

bool is_evidence_file(std::string const& path)
{
    std::vector<std::uint8_t> head;
    if (!read_file_prefix(path, head_size, head)) return false;
    return begins_like_evidence(byte_view{head.data(), head.size()});
}
