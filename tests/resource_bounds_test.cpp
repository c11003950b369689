// The worst inputs we know how to build, run through the built kito: whatever
// a file of at most 16 MiB holds, one run of it stays under 1 GB of memory.
// (How long it takes belongs in bench/, not here.)
#include <gtest/gtest.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "support/container_encoder.h"
#include "support/prefetch_builder.h"
#include "support/run_process.h"
#include "support/temp_folder.h"

extern char** environ;

namespace {

constexpr std::uint32_t input_limit = 0x1000000;
constexpr long memory_bound_kb = 1000L * 1000;

// A header of the version with no strings and no volumes, in 16 MiB of zeros.
pf_image bare_image(std::uint32_t version)
{
    pf_fields fields = typical_prefetch(version);
    fields.file_strings.clear();
    fields.volumes.clear();
    pf_image image = build_prefetch(fields);
    image.bytes.resize(input_limit, 0);
    return image;
}

// A header whose strings section runs to the end of 16 MiB of zero units:
// eight million empty file names, each one a line of every report.
byte_vec zero_units()
{
    pf_image image = bare_image(31);
    image.put_u32(88, 0);           // no count: the strings run to the end
    image.put_u32(108, input_limit); // volumes section empty, at the very end
    return image.bytes;
}

// 100,000 volume records that all point at one path and one list of
// directories filling the rest of the file.
byte_vec shared_directories()
{
    constexpr std::uint32_t records = 100000, record_size = 40, volumes = 232;
    pf_image image = bare_image(17);
    std::uint32_t const path = volumes + records * record_size;
    image.put_u32(100, input_limit - 2);
    image.put_u32(108, volumes);
    for (std::uint32_t r = 0; r < records; ++r) {
        image.put_u32(volumes + r * record_size, path - volumes);
        image.put_u32(volumes + r * record_size + 32, 0xFFFFFFFF); // directory count
    }
    image.put_u16(path, 'C');
    for (std::uint32_t at = path + 8; at + 6 <= input_limit; at += 6) image.put_u16(at, 1), image.put_u16(at + 2, 'D');
    return image.bytes;
}

// As many 40-byte volume records as 16 MiB holds, each with its own creation
// time and one shared empty path: a timeline row per time, a volume list per row.
byte_vec many_volumes()
{
    constexpr std::uint32_t record_size = 40, volumes = 232, records = (input_limit - volumes - 64) / record_size;
    pf_image image = bare_image(17);
    image.put_u32(100, input_limit - 2);
    image.put_u32(108, volumes);
    for (std::uint32_t r = 0; r < records; ++r) {
        image.put_u32(volumes + r * record_size, records * record_size);
        image.put_u32(volumes + r * record_size + 8, 130000000 + r);
    }
    return image.bytes;
}

struct worst_case {
    char const* name;
    byte_vec (*bytes)();
    std::vector<std::string> options;
    int status;
};

byte_vec packed_zeros() { return encode_mam(zero_units()); } // some 66 KB that unpack to all of it

byte_vec huge_claim()
{
    byte_vec packed = packed_zeros();
    packed.resize(300);
    packed[7] = 0x40; // declares 1 GiB
    return packed;
}

// One worst case a test (and a process), so that ctest runs them side by side
// and each peak below is that of one run of kito.
class resource_bounds : public testing::TestWithParam<worst_case> {};

TEST_P(resource_bounds, worst_input_stays_under_one_gigabyte)
{
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the memory bound is for the product build, not for one under AddressSanitizer";
#endif
    if (env_or_empty("KITO_BINARY").empty()) GTEST_SKIP() << "KITO_BINARY not set";
    worst_case const& r = GetParam();
    temp_folder const folder{"bounds"};
    std::string const path = folder / "input.pf", results = folder / "results.txt";
    byte_vec const bytes = r.bytes();
    if (r.bytes == packed_zeros) {
        ASSERT_LT(bytes.size(), 128u * 1024);
    }
    write_file(path, bytes);
    std::vector<std::string> args{path, "-quiet", "-out", results};
    args.insert(args.end(), r.options.begin(), r.options.end());
    EXPECT_EQ(run_kito(args).status, r.status);
    if (r.bytes == shared_directories) {
        // Every directory line costs at least six bytes of the file, however
        // many volumes point at it.
        std::string const report = read_file(results);
        EXPECT_GT(count_of(report, "vol path:"), 0u);
        EXPECT_LE(count_of(report, " : D\n"), input_limit / 6);
    }
    rusage usage{};
    ASSERT_EQ(getrusage(RUSAGE_CHILDREN, &usage), 0);
    RecordProperty("peak_rss_kb", std::to_string(usage.ru_maxrss));
    EXPECT_LT(usage.ru_maxrss, memory_bound_kb);
}

INSTANTIATE_TEST_SUITE_P(worst, resource_bounds,
                         testing::Values(worst_case{"zeros_text", zero_units, {}, 0},
                                         worst_case{"zeros_csv", zero_units, {"-csv", "-verbose"}, 0},
                                         worst_case{"zeros_json", zero_units, {"-json"}, 0},
                                         worst_case{"packed_timeline", packed_zeros, {"-csvl2t"}, 0},
                                         worst_case{"shared_dirs", shared_directories, {}, 0},
                                         worst_case{"many_volumes", many_volumes, {"-csvl2t", "-verbose"}, 0},
                                         worst_case{"claim_1gib", huge_claim, {}, 255}),
                         [](auto const& info) { return std::string(info.param.name); });

// Peak resident size in KiB of one kito -pipe over the names in `list`; spawned, as a fork would count this process.
// The peak memory of kito -pipe over a list. With `stalled_output` its
// results go to a pipe that is read only after that long: the first report
// then waits on a full pipe while the other files are decoded, the most that
// can be in flight at once.
long peak_rss_kib(std::string const& list, std::vector<char const*> options = {},
                  std::chrono::milliseconds stalled_output = {})
{
    std::string const kito = env_or_empty("KITO_BINARY");
    int results[2] = {-1, -1};
    if (stalled_output.count() > 0 && ::pipe(results) != 0) return -1;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, list.c_str(), O_RDONLY, 0);
    if (results[1] >= 0) {
        posix_spawn_file_actions_adddup2(&actions, results[1], 1);
        posix_spawn_file_actions_addclose(&actions, results[0]);
    } else {
        posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    }
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    options.insert(options.begin(), {kito.c_str(), "-pipe"});
    options.push_back(nullptr);
    char* const* argv = const_cast<char* const*>(options.data());
    pid_t pid = 0;
    int status = 0;
    rusage usage{};
    bool ok = posix_spawn(&pid, kito.c_str(), &actions, nullptr, argv, environ) == 0;
    posix_spawn_file_actions_destroy(&actions);
    if (results[1] >= 0) {
        ::close(results[1]);
        if (ok) std::this_thread::sleep_for(stalled_output);
        char drained[65536];
        while (::read(results[0], drained, sizeof drained) > 0) {
        }
        ::close(results[0]);
    }
    ok = ok && ::wait4(pid, &status, 0, &usage) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    return ok ? usage.ru_maxrss : -1;
}

TEST(batch_memory, stays_flat_over_thousands_of_files)
{
    if (env_or_empty("KITO_BINARY").empty()) GTEST_SKIP() << "KITO_BINARY not set";
    temp_folder const folder{"many"};
    auto const bytes = build_prefetch(typical_prefetch(17)).bytes;
    std::string names[2];
    for (int i = 0; i < 3000; ++i) {
        write_file(folder / ("f" + std::to_string(i) + ".pf"), bytes);
        names[i < 200 ? 0 : 1] += folder / ("f" + std::to_string(i) + ".pf\n");
    }
    write_file(folder / "small.txt", names[0]);
    write_file(folder / "large.txt", names[0] + names[1]);
    // AddressSanitizer's quarantine of freed blocks grows with the files: off for the children (others ignore it).
    char const* sanitizer = std::getenv("ASAN_OPTIONS");
    std::string const saved = sanitizer ? sanitizer : "";
    ::setenv("ASAN_OPTIONS", (saved + ":quarantine_size_mb=0:thread_local_quarantine_size_kb=0").c_str(), 1);
    long const small = peak_rss_kib(folder / "small.txt"), large = peak_rss_kib(folder / "large.txt");
    sanitizer ? ::setenv("ASAN_OPTIONS", saved.c_str(), 1) : ::unsetenv("ASAN_OPTIONS");
    ASSERT_GT(small, 0);
    EXPECT_LT(large, small + 2048) << "peak RSS " << small << " KiB for 200 files, " << large << " for 3000";
}

// Two threads keep at most eight files in flight (the window itself is
// shown in ordered_work_test). The worst case: files that each unpack to the
// 16 MiB limit, eight million names kept for the timeline's module list,
// half as many again as the window holds, with the results read only after
// the other thread has had time to decode them all. The peak stays below
// eight times that of one such file; without the window it is above.
TEST(batch_memory, files_in_flight_stay_within_the_window)
{
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the memory bound is for the product build, not for one under AddressSanitizer";
#endif
    if (env_or_empty("KITO_BINARY").empty()) GTEST_SKIP() << "KITO_BINARY not set";
    temp_folder const folder{"window"};
    write_file(folder / "zeros.pf", packed_zeros());
    std::string const name = folder / "zeros.pf\n";
    write_file(folder / "one.txt", name);
    std::string many;
    for (int i = 0; i < 12; ++i) many += name;
    write_file(folder / "many.txt", many);
    std::vector<char const*> const options{"-csvl2t", "-verbose", "-threads", "2"};
    long const one = peak_rss_kib(folder / "one.txt", options);
    long const all = peak_rss_kib(folder / "many.txt", options, std::chrono::seconds(5));
    ASSERT_GT(one, 0);
    RecordProperty("one_file_peak_rss_kb", std::to_string(one));
    RecordProperty("peak_rss_kb", std::to_string(all));
    EXPECT_LT(all, 8 * one) << "peak RSS " << one << " KiB for one file, " << all << " for 12";
    EXPECT_GT(all, one + one / 2) << "the files did not run side by side";
}

} // namespace
