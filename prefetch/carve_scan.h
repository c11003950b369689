#pragma once
// Prefetch files found by their signatures inside any bytes: a page file, a
// memory image, the free clusters of a volume. A Windows 8+ file announces
// itself as a "MAM" 0x04 container, an older one by its version and "SCCA".
// Nothing here reads a file: the caller hands in bytes, or a read function.
#include <cstdint>
#include <functional>
#include <vector>

#include "prefetch/byte_reader.h"
#include "prefetch/container_decompressor.h"

// The largest Prefetch file a hit may be: the loader's input limit.
constexpr std::uint32_t carve_max_file = 0x1000000;
// The most bytes a container hit can span: 16 MiB of output made of 15-bit
// literals, a 256-byte table in front of each of its 256 blocks, and the header.
constexpr std::uint64_t carve_max_span = 8 + 256 * 256 + std::uint64_t{carve_max_file} / 8 * 15 + 64;
// Bytes behind the last candidate offset that the signature search reads.
constexpr std::size_t carve_lookahead = 7;

enum class carve_format { plain, container };

struct carve_candidate {
    std::size_t offset = 0; // in the window
    carve_format format = carve_format::plain;
};

// Every offset below scan_end where "MAM" 0x04 begins (a container) or where
// "SCCA" stands 4 bytes on (a plain file), in offset order. Reads at most
// scan_end + carve_lookahead bytes of the window.
void find_candidates(byte_view window, std::size_t scan_end, std::vector<carve_candidate>& found);

enum class carve_verdict { hit, rejected, need_more };
struct carve_check {
    carve_verdict verdict = carve_verdict::rejected;
    std::uint64_t length = 0; // bytes the hit spans
};

// Whether the header of a candidate holds. `rest` runs from the candidate to
// the end of the bytes in hand; `at_end` says no bytes follow them, else a
// check that needs more of them says so. `work` is scratch for containers.
carve_check check_candidate(byte_view rest, carve_format format, bool at_end, container_decompressor& work);

struct carve_hit {
    std::uint64_t offset = 0; // from the start of the scanned data
    std::uint64_t length = 0;
    std::vector<std::uint8_t> bytes;
};

// Fills `buffer` with up to `count` bytes from `offset`: the count read, 0 at
// the end of the data, below 0 for a read error.
using carve_read = std::function<std::int64_t(std::uint64_t offset, std::uint8_t* buffer, std::size_t count)>;

// Streams data through a bounded window and yields its hits in offset order.
// A candidate inside the span of a hit is passed over; one whose header fails
// is counted. The window holds one chunk, and grows to a candidate's largest
// possible span only while that candidate is checked: memory stays below
// carve_max_span plus two chunks plus one container's output, whatever the size.
class carve_scanner {
public:
    explicit carve_scanner(carve_read read, std::size_t chunk = 0x40000);

    // The next hit; false at the end of the data or at a read error.
    bool next(carve_hit& hit);
    std::uint64_t rejected() const { return m_rejected; }
    bool read_failed() const { return m_read_failed; }
    // Bytes read so far; all of the data once next() has given false.
    std::uint64_t scanned() const { return m_start + m_length; }

private:
    bool fill_to(std::size_t size);
    bool next_chunk();

    carve_read m_read;
    std::size_t m_chunk;
    std::vector<std::uint8_t> m_buffer; // the window, in its first m_length bytes
    std::size_t m_length = 0;
    std::size_t m_scan_end = 0; // candidates were sought below this
    std::uint64_t m_start = 0;  // offset of the window's first byte in the data
    bool m_at_end = false;      // the window reaches the end of the data
    bool m_read_failed = false;
    bool m_started = false;
    std::vector<carve_candidate> m_candidates;
    std::size_t m_next_candidate = 0;
    std::uint64_t m_skip_until = 0; // end of the last hit
    std::uint64_t m_rejected = 0;
    container_decompressor m_work;
};
