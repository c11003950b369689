// Prefetch files found by signature in random bytes: where they were planted,
// with the bytes they were made of; damaged look-alikes counted, not reported.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>

#include "prefetch/carve_scan.h"
#include "support/prefetch_builder.h"
#include "support/test_table.h"

namespace {

using bytes_t = std::vector<std::uint8_t>;
std::vector<pf_sample> const samples = sample_files(false);

bytes_t random_bytes(std::size_t size, unsigned seed)
{
    std::mt19937 engine(seed);
    bytes_t out(size);
    for (auto& b : out) b = static_cast<std::uint8_t>(engine());
    return out;
}

void put_u32(bytes_t& bytes, std::size_t offset, std::uint32_t value)
{
    for (int i = 0; i < 4; ++i) bytes[offset + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(value >> (8 * i));
}

// Offset -1: behind the end of what was planted last, or at the end of the data.
std::size_t plant(bytes_t& data, bytes_t const& file, long long offset, std::size_t behind)
{
    std::size_t const at = offset >= 0 ? static_cast<std::size_t>(offset) : behind;
    if (data.size() < at + file.size()) data.resize(at + file.size());
    std::copy(file.begin(), file.end(), data.begin() + static_cast<std::ptrdiff_t>(at));
    return at;
}

struct scan_result {
    std::vector<carve_hit> hits;
    std::uint64_t rejected = 0;
};

// Through the streaming scanner, with the chunk given: hits and counts must
// not depend on where the chunks end.
scan_result scan(bytes_t const& data, std::size_t chunk)
{
    carve_scanner scanner(
        [&data](std::uint64_t offset, std::uint8_t* buffer, std::size_t count) -> std::int64_t {
            if (offset >= data.size()) return 0;
            std::size_t const n = std::min<std::size_t>(count, data.size() - offset);
            std::memcpy(buffer, data.data() + offset, n);
            return static_cast<std::int64_t>(n);
        },
        chunk);
    scan_result result;
    for (carve_hit hit; scanner.next(hit);) result.hits.push_back(hit);
    result.rejected = scanner.rejected();
    EXPECT_FALSE(scanner.read_failed());
    return result;
}

// What the decoder makes of a file: a container's output, or the plain bytes.
bytes_t unpacked(bytes_t const& file)
{
    container_decompressor work;
    if (file.size() < 4 || file[0] != 'M') return file;
    EXPECT_TRUE(work.decompress_container(file));
    return work.output();
}

bytes_t decoy(std::string const& kind)
{
    bytes_t plain = samples[0].bytes, mam = samples[3].bytes;
    if (kind == "junk") {
        bytes_t junk = random_bytes(3000, 5);
        std::memcpy(junk.data(), "MAM\x04", 4);
        put_u32(junk, 4, 1000);
        return junk;
    }
    if (kind == "declared_too_large") put_u32(mam, 4, carve_max_file + 1);
    if (kind == "damaged") {
        bytes_t const noise = random_bytes(32, 9);
        std::copy(noise.begin(), noise.end(), mam.begin() + static_cast<std::ptrdiff_t>(mam.size() / 2));
    }
    if (kind == "cut") mam.resize(mam.size() / 2);
    if (kind == "version_99") put_u32(plain, 0, 99);
    if (kind == "size_past_end") put_u32(plain, 12, static_cast<std::uint32_t>(plain.size() + 1));
    if (kind == "size_83") put_u32(plain, 12, 83);
    return kind.starts_with("size") || kind.starts_with("version") ? plain : mam;
}

TEST(carve_scan, finds_planted_files_where_they_were_planted)
{
    for (json const& row : test_rows("carve_scan", "plants")) {
        SCOPED_TRACE(row.at("name").get<std::string>());
        bytes_t data = random_bytes(row.at("size"), 1);
        std::vector<std::size_t> offsets;
        std::vector<bytes_t> files;
        std::size_t behind = 0;
        for (json const& f : row.at("files")) {
            bytes_t file = samples.at(f[0]).bytes;
            if (files.empty() && row.contains("pad")) {
                file.resize(file.size() + row.at("pad").get<std::size_t>(), 0);
                put_u32(file, 12, static_cast<std::uint32_t>(file.size()));
            }
            offsets.push_back(plant(data, file, f[1], behind));
            behind = offsets.back() + file.size();
            files.push_back(file);
        }
        for (std::size_t chunk : {std::size_t{4096}, std::size_t{1} << 18}) {
            scan_result const found = scan(data, chunk);
            std::vector<std::size_t> const wanted = row.at("hits");
            ASSERT_EQ(found.hits.size(), wanted.size()) << "chunk " << chunk;
            EXPECT_EQ(found.rejected, 0u);
            for (std::size_t i = 0; i < wanted.size(); ++i) {
                carve_hit const& hit = found.hits[i];
                bytes_t const& file = files[wanted[i]];
                EXPECT_EQ(hit.offset, offsets[wanted[i]]);
                EXPECT_LE(hit.length, file.size());
                auto const from = data.begin() + static_cast<std::ptrdiff_t>(hit.offset);
                EXPECT_EQ(unpacked(hit.bytes), unpacked(bytes_t(from, from + static_cast<std::ptrdiff_t>(file.size()))));
                // A plain file spans its size field; a container its stream.
                if (file[0] != 'M') {
                    EXPECT_EQ(hit.length, file.size());
                }
            }
        }
    }
}

TEST(carve_scan, counts_damaged_lookalikes_without_reporting_them)
{
    for (json const& row : test_rows("carve_scan", "decoys")) {
        SCOPED_TRACE(row.at("name").get<std::string>());
        bytes_t data = random_bytes(20000, 2);
        plant(data, decoy(row.at("kind")), row.at("offset"), data.size());
        scan_result const found = scan(data, 4096);
        EXPECT_TRUE(found.hits.empty());
        EXPECT_EQ(found.rejected, 1u);
    }
}

// The signature search on its own: each signature at every alignment and
// at both ends of the scanned range, nothing at or past scan_end.
TEST(carve_scan, signature_search_covers_every_position)
{
    for (std::size_t at = 0; at < 100; ++at) {
        bytes_t window(120, 'x');
        std::memcpy(window.data() + at, "MAM\x04", 4);
        if (at + 14 <= window.size()) std::memcpy(window.data() + at + 10, "SCCA", 4);
        std::vector<carve_candidate> found;
        find_candidates(byte_view{window.data(), window.size()}, 100, found);
        std::vector<std::size_t> wanted = {at};
        if (at + 6 < 100 && at + 14 <= window.size()) wanted.push_back(at + 6);
        std::vector<std::size_t> got;
        for (carve_candidate const& c : found) got.push_back(c.offset);
        EXPECT_EQ(got, wanted) << at;
    }
}

} // namespace
