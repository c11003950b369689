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

// Through the streaming scanner, with the chunk given: hits and counts must
// not depend on where the chunks end. The hits, and the count of rejected candidates.
std::pair<std::vector<carve_hit>, std::uint64_t> scan(bytes_t const& data, std::size_t chunk)
{
    carve_scanner scanner(
        [&data](std::uint64_t offset, std::uint8_t* buffer, std::size_t count) -> std::int64_t {
            if (offset >= data.size()) return 0;
            std::size_t const n = std::min<std::size_t>(count, data.size() - offset);
            std::memcpy(buffer, data.data() + offset, n);
            return static_cast<std::int64_t>(n);
        },
        chunk);
    std::vector<carve_hit> hits;
    for (carve_hit hit; scanner.next(hit);) hits.push_back(hit);
    EXPECT_FALSE(scanner.read_failed());
    return {hits, scanner.rejected()};
}

// What the decoder makes of a file: a container's output, or the plain bytes.
bytes_t unpacked(bytes_t const& file)
{
    container_decompressor work;
    return file[0] == 'M' && work.decompress_container(file) ? work.output() : file;
}

// A sample with fields overwritten, 32 bytes of noise halfway or its second
// half cut off; sample -1 is random bytes.
bytes_t decoy(json const& row)
{
    int const sample = row.at("sample");
    bytes_t file = sample < 0 ? random_bytes(3000, 5) : samples.at(static_cast<std::size_t>(sample)).bytes;
    for (json const& field : row.value("u32", json::array())) put_u32(file, field[0], field[1]);
    bytes_t const noise = random_bytes(row.value("noise", 0), 9);
    std::copy(noise.begin(), noise.end(), file.begin() + static_cast<std::ptrdiff_t>(file.size() / 2));
    if (row.value("cut", false)) file.resize(file.size() / 2);
    return file;
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
            auto const [hits, rejected] = scan(data, chunk);
            std::vector<std::size_t> const wanted = row.at("hits");
            ASSERT_EQ(hits.size(), wanted.size()) << "chunk " << chunk;
            EXPECT_EQ(rejected, 0u);
            for (std::size_t i = 0; i < wanted.size(); ++i) {
                carve_hit const& hit = hits[i];
                bytes_t const& file = files[wanted[i]];
                EXPECT_EQ(hit.offset, offsets[wanted[i]]);
                EXPECT_LE(hit.length, file.size());
                auto const from = data.begin() + static_cast<std::ptrdiff_t>(hit.offset);
                EXPECT_EQ(unpacked(hit.bytes), unpacked(bytes_t(from, from + static_cast<std::ptrdiff_t>(file.size()))));
                // A plain file spans its size field; a container its stream.
                EXPECT_TRUE(file[0] == 'M' || hit.length == file.size());
            }
        }
    }
}

TEST(carve_scan, counts_damaged_lookalikes_without_reporting_them)
{
    for (json const& row : test_rows("carve_scan", "decoys")) {
        SCOPED_TRACE(row.at("name").get<std::string>());
        bytes_t data = random_bytes(20000, 2);
        plant(data, decoy(row), row.at("offset"), data.size());
        auto const [hits, rejected] = scan(data, 4096);
        EXPECT_TRUE(hits.empty());
        EXPECT_EQ(rejected, 1u);
    }
}

} // namespace
