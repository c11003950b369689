#include "prefetch/carve_scan.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>

namespace {

constexpr std::uint8_t container_magic[4] = {'M', 'A', 'M', 0x04};
constexpr std::uint8_t plain_signature[4] = {'S', 'C', 'C', 'A'};
constexpr std::uint32_t known_versions[] = {17, 23, 26, 30, 31};
// The smallest plain file that holds the header fields every layout reads.
constexpr std::uint32_t smallest_plain = 84;
// The first 16 bytes of a Prefetch file hold its version, signature and size.
constexpr std::uint32_t header_bytes = 16;
// Input enough for a container's first 16 output bytes: the 8-byte header,
// the first table, and 16 symbols of at most 8 bytes each, with room to spare.
constexpr std::size_t probe_input = 8 + 256 + 1024;

// A signature byte pair found at `position`: the whole signature there makes
// a candidate, at the position for a container, 4 bytes before for "SCCA".
void note_match(std::uint8_t const* data, std::size_t position, std::size_t scan_end,
                std::vector<carve_candidate>& found)
{
    std::uint8_t const* at = data + position;
    if (std::memcmp(at, container_magic, 4) == 0 && position < scan_end)
        found.push_back({position, carve_format::container});
    else if (std::memcmp(at, plain_signature, 4) == 0 && position >= 4 && position - 4 < scan_end)
        found.push_back({position - 4, carve_format::plain});
}

// Positions whose first byte is 'M' with 0x04 three on, or 'S' with 'A'
// three on: one in 32768 in random bytes, each then tested whole. The
// compiler's generic vectors make this SSE2 or AVX2 code on x86 and NEON on
// ARM; a round of 128 positions without a pair costs a few instructions.
using byte_block = std::uint8_t __attribute__((vector_size(32)));

#if defined(__x86_64__) && !defined(__clang__)
__attribute__((target_clones("avx2", "default")))
#endif
std::size_t
scan_vectors(std::uint8_t const* data, std::size_t end, std::size_t scan_end, std::vector<carve_candidate>& found)
{
    auto const pairs_at = [data](std::size_t at, byte_block& pairs) {
        byte_block first, fourth;
        std::memcpy(&first, data + at, sizeof first);
        std::memcpy(&fourth, data + at + 3, sizeof fourth);
        pairs |= ((first == 'M') & (fourth == 0x04)) | ((first == 'S') & (fourth == 'A'));
    };
    constexpr std::size_t round = 128;
    std::size_t position = 0;
    // The loads reach 3 bytes past the last position tested.
    for (; position + round + 3 <= end; position += round) {
        byte_block pairs{};
        for (std::size_t at = position; at < position + round; at += sizeof pairs) pairs_at(at, pairs);
        std::uint64_t lanes[4];
        std::memcpy(lanes, &pairs, sizeof lanes);
        if ((lanes[0] | lanes[1] | lanes[2] | lanes[3]) == 0) continue;
        for (std::size_t at = position; at < position + round; ++at)
            if ((data[at] == 'M' && data[at + 3] == 0x04) || (data[at] == 'S' && data[at + 3] == 'A'))
                note_match(data, at, scan_end, found);
    }
    return position;
}

bool known_version(std::uint32_t version)
{
    return std::find(std::begin(known_versions), std::end(known_versions), version) != std::end(known_versions);
}

// A known version, "SCCA", and the size field `size`.
bool header_holds(byte_view bytes, std::uint32_t size)
{
    std::uint32_t version = 0, declared = 0;
    return read_u32(bytes, 0, version) && known_version(version) && bytes.has(4, 4) &&
           std::memcmp(bytes.data + 4, plain_signature, 4) == 0 && read_u32(bytes, 12, declared) && declared == size;
}

carve_check verdict(carve_verdict which, std::uint64_t length = 0) { return {which, length}; }

carve_check check_plain(byte_view rest, bool at_end)
{
    std::uint32_t size = 0;
    if (!read_u32(rest, 12, size)) return verdict(at_end ? carve_verdict::rejected : carve_verdict::need_more);
    if (size < smallest_plain || size > carve_max_file || !header_holds(rest, size))
        return verdict(carve_verdict::rejected);
    if (size > rest.size) return verdict(at_end ? carve_verdict::rejected : carve_verdict::need_more);
    return verdict(carve_verdict::hit, size);
}

byte_view output_of(container_decompressor const& work) { return {work.output().data(), work.output().size()}; }

// The first 16 output bytes alone, from a copy of the start of the stream
// that declares 17 bytes of output: junk behind "MAM" 0x04 costs one table,
// not the declared size. The container rules leave the last byte undecoded.
bool probe_header(byte_view rest, std::uint32_t declared, container_decompressor& work)
{
    std::array<std::uint8_t, probe_input> probe{};
    std::size_t const size = std::min(rest.size, probe.size());
    std::memcpy(probe.data(), rest.data, size);
    std::uint32_t const probe_output = header_bytes + 1;
    for (int i = 0; i < 4; ++i)
        probe[4 + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(probe_output >> (8 * i));
    work.reset();
    return work.decompress_container(probe.data(), static_cast<std::int32_t>(size)) && !work.block_failed() &&
           work.produced() >= header_bytes && header_holds(output_of(work), declared);
}

carve_check check_container(byte_view rest, bool at_end, container_decompressor& work)
{
    carve_verdict const short_input = at_end ? carve_verdict::rejected : carve_verdict::need_more;
    std::uint32_t declared = 0;
    if (!read_u32(rest, 4, declared)) return verdict(short_input);
    if (declared == 0 || declared > carve_max_file) return verdict(carve_verdict::rejected);
    if (rest.size < probe_input && !at_end) return verdict(carve_verdict::need_more);
    if (!probe_header(rest, declared, work)) return verdict(carve_verdict::rejected);
    work.reset();
    auto const size =
        static_cast<std::int32_t>(std::min<std::size_t>(rest.size, std::numeric_limits<std::int32_t>::max()));
    if (!work.decompress_container(rest.data, size) || work.block_failed()) return verdict(carve_verdict::rejected);
    // Sound blocks that stop short of the output ran out of input.
    if (std::uint64_t{work.produced()} + 1 < declared) return verdict(short_input);
    if (!header_holds(output_of(work), declared)) return verdict(carve_verdict::rejected);
    return verdict(carve_verdict::hit, work.consumed());
}

} // namespace

void find_candidates(byte_view window, std::size_t scan_end, std::vector<carve_candidate>& found)
{
    found.clear();
    if (window.data == nullptr) return;
    // Signatures are tested from every position that can hold one whose
    // candidate lies below scan_end: a "SCCA" may start 4 bytes further on.
    std::size_t const end = std::min(window.size, scan_end + carve_lookahead);
    if (end < 4) return;
    std::size_t position = scan_vectors(window.data, end, scan_end, found);
    for (; position + 4 <= end; ++position) {
        std::uint8_t const first = window.data[position], fourth = window.data[position + 3];
        if ((first == 'M' && fourth == 0x04) || (first == 'S' && fourth == 'A'))
            note_match(window.data, position, scan_end, found);
    }
    // A "SCCA" names a candidate 4 bytes before it, behind containers found since.
    std::stable_sort(found.begin(), found.end(),
                     [](carve_candidate const& a, carve_candidate const& b) { return a.offset < b.offset; });
}

carve_check check_candidate(byte_view rest, carve_format format, bool at_end, container_decompressor& work)
{
    if (rest.data == nullptr) return verdict(carve_verdict::rejected);
    return format == carve_format::plain ? check_plain(rest, at_end) : check_container(rest, at_end, work);
}

carve_scanner::carve_scanner(carve_read read, std::size_t chunk)
    : m_read(std::move(read)), m_chunk(std::max<std::size_t>(chunk, 64))
{
}

// Reads until the window holds `size` bytes or the data ends. False on a read error.
bool carve_scanner::fill_to(std::size_t size)
{
    while (m_length < size && !m_at_end) {
        // The window doubles as the data comes, so a short file never costs
        // the largest span.
        std::size_t const room = std::min(size, std::max(2 * m_length, m_length + m_chunk));
        if (m_buffer.size() < room) m_buffer.resize(room);
        std::int64_t const got = m_read(m_start + m_length, m_buffer.data() + m_length, room - m_length);
        if (got < 0) {
            m_read_failed = true;
            return false;
        }
        if (got == 0) m_at_end = true;
        m_length += static_cast<std::size_t>(got);
    }
    return true;
}

// Drops what was scanned, reads the next chunk and finds its candidates.
// False when no byte is left or a read fails.
bool carve_scanner::next_chunk()
{
    if (m_at_end && m_scan_end == m_length && m_started) return false;
    m_started = true;
    if (m_scan_end > 0 && m_length > m_scan_end)
        std::memmove(m_buffer.data(), m_buffer.data() + m_scan_end, m_length - m_scan_end);
    m_length -= m_scan_end;
    m_start += m_scan_end;
    // Only the bytes in hand are kept, not a window grown for one large candidate.
    if (m_buffer.size() > m_chunk + carve_lookahead && m_length <= m_chunk + carve_lookahead) {
        m_buffer.resize(m_chunk + carve_lookahead);
        m_buffer.shrink_to_fit();
    }
    if (!fill_to(m_chunk + carve_lookahead)) return false;
    m_scan_end = m_at_end ? m_length : m_length - carve_lookahead;
    find_candidates(byte_view{m_buffer.data(), m_length}, m_scan_end, m_candidates);
    m_next_candidate = 0;
    return m_length > 0;
}

bool carve_scanner::next(carve_hit& hit)
{
    for (;;) {
        if (m_next_candidate >= m_candidates.size()) {
            if (!next_chunk()) return false;
            continue;
        }
        carve_candidate const candidate = m_candidates[m_next_candidate];
        std::uint64_t const offset = m_start + candidate.offset;
        if (offset < m_skip_until) {
            ++m_next_candidate;
            continue;
        }
        byte_view const rest{m_buffer.data() + candidate.offset, m_length - candidate.offset};
        bool const whole = m_at_end || rest.size >= carve_max_span;
        carve_check const check = check_candidate(rest, candidate.format, whole, m_work);
        if (check.verdict == carve_verdict::need_more) {
            if (!fill_to(candidate.offset + static_cast<std::size_t>(carve_max_span))) return false;
            continue;
        }
        ++m_next_candidate;
        if (check.verdict == carve_verdict::rejected) {
            ++m_rejected;
            continue;
        }
        hit.offset = offset;
        hit.length = check.length;
        hit.bytes.assign(rest.data, rest.data + check.length);
        m_skip_until = offset + check.length;
        return true;
    }
}
