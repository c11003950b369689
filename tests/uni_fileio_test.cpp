#include "foundation/uni_fileio.h"

#include <chrono>
#include <fcntl.h>
#include <future>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/run_process.h"

namespace {

std::vector<std::uint8_t> bytes_of(std::string const& text) { return {text.begin(), text.end()}; }

std::uint64_t size_on_disk(std::string const& path)
{
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 ? static_cast<std::uint64_t>(info.st_size) : UINT64_MAX;
}

class fileio_test : public ::testing::Test {
protected:
    std::string m_dir = make_temp_dir("fileio");
};

TEST_F(fileio_test, loader_reads_prefix_and_refuses_empty_or_missing)
{
    std::string const data = m_dir + "/data.pf";
    std::string const empty = m_dir + "/empty.pf";
    write_file(data, "SCCA-and-more");
    write_file(empty, "");
    struct load_case {
        std::string path;
        std::uint32_t limit;
        bool result;
        std::string bytes;
    };
    load_case const cases[] = {
        {data, 0xFFFFFFFFu, true, "SCCA-and-more"},
        {data, 4, true, "SCCA"},
        {data + "/", 0xFFFFFFFFu, true, "SCCA-and-more"}, // trailing separators are stripped
        {data + "\\//", 4, true, "SCCA"},
        {data, 0, false, ""},
        {empty, 0xFFFFFFFFu, false, ""},
        {m_dir + "/missing.pf", 0xFFFFFFFFu, false, ""},
        {"", 0xFFFFFFFFu, false, ""},
    };
    for (load_case const& c : cases) {
        SCOPED_TRACE(c.path + " limit " + std::to_string(c.limit));
        std::vector<std::uint8_t> out{1, 2, 3};
        EXPECT_EQ(read_file_prefix(c.path, c.limit, out), c.result);
        EXPECT_EQ(out, bytes_of(c.bytes));
    }
    std::vector<std::uint8_t> whole;
    EXPECT_FALSE(read_whole_file(whole, empty, 0xFFFFFFFFu));
    EXPECT_TRUE(read_whole_file(whole, data, 0xFFFFFFFFu));
    EXPECT_EQ(whole, bytes_of("SCCA-and-more"));
}

TEST_F(fileio_test, read_honours_offset_count_and_bounds)
{
    write_file(m_dir + "/r.bin", "0123456789");
    uni::fileio file(m_dir + "/r.bin", false, false);
    std::vector<std::uint8_t> out{9};
    EXPECT_TRUE(file.read(out, 0, 0));
    EXPECT_EQ(out, std::vector<std::uint8_t>{9}) << "a count of 0 leaves the vector as it was";
    EXPECT_TRUE(file.read(out, 100, 7));
    EXPECT_EQ(out, bytes_of("789"));
    EXPECT_FALSE(file.read(out, 1, 10)) << "offset at the end";
    file.close();
    EXPECT_FALSE(file.read(out, 1, 0)) << "closed";
}

TEST_F(fileio_test, fifo_is_refused_without_blocking)
{
    std::string const fifo = m_dir + "/names.fifo";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    auto attempt = std::async(std::launch::async, [&] {
        uni::fileio reader(fifo, false, false);
        uni::fileio writer(fifo, true, false);
        std::vector<std::uint8_t> out;
        return reader.is_open() || writer.is_open() || read_file_prefix(fifo, 16, out);
    });
    if (attempt.wait_for(std::chrono::seconds(10)) != std::future_status::ready) {
        // Release the blocked open so that the test can end, then fail.
        int writer = ::open(fifo.c_str(), O_RDWR);
        attempt.wait();
        ::close(writer);
        FAIL() << "open blocked on a FIFO";
    }
    EXPECT_FALSE(attempt.get());
}

TEST_F(fileio_test, directory_opens_and_proc_file_reads_up_to_its_cap)
{
    uni::fileio folder(m_dir, false, false);
    EXPECT_TRUE(folder.is_open()) << "a folder passes the open; reading it fails later";
    std::vector<std::uint8_t> nothing;
    EXPECT_FALSE(read_file_prefix(m_dir + "/", 0x1000000, nothing));
    EXPECT_TRUE(nothing.empty());

    // /proc files report no end: the size is taken as 0x40000 and the short
    // read then cuts the vector to what arrived.
    uni::fileio status("/proc/self/status", false, false);
    ASSERT_TRUE(status.is_open());
    EXPECT_EQ(status.size(), 0x40000u);
    std::vector<std::uint8_t> out;
    ASSERT_TRUE(read_file_prefix("/proc/self/status", 0xFFFFFFFFu, out));
    std::string text(out.begin(), out.end());
    EXPECT_LT(out.size(), 0x40000u);
    EXPECT_EQ(text.rfind("Name:", 0), 0u) << text.substr(0, 40);
}

TEST_F(fileio_test, append_is_append_only_and_zero_bytes_change_nothing)
{
    std::string const path = m_dir + "/a.txt";
    write_file(path, "abc");
    uni::fileio file(path, true, false);
    ASSERT_TRUE(file.is_open());
    std::uint8_t const more[] = {'d', 'e'};
    EXPECT_TRUE(file.append(more, 0));
    EXPECT_EQ(read_file(path), "abc");
    EXPECT_FALSE(file.append(nullptr, 2));
    EXPECT_TRUE(file.append(more, 2));
    EXPECT_TRUE(file.append(std::vector<std::uint8_t>{}));
    std::ostringstream text;
    text << "fg";
    EXPECT_TRUE(file.append_stream(text));
    EXPECT_EQ(file.size(), 7u);
    file.close();
    EXPECT_EQ(read_file(path), "abcdefg");

    EXPECT_FALSE(file.append(more, 2)) << "closed";
    EXPECT_FALSE(uni::fileio(m_dir + "/none.txt", true, false).is_open()) << "no truncation, no creation";
    EXPECT_TRUE(uni::fileio(path, true, true).is_open());
    EXPECT_EQ(size_on_disk(path), 0u) << "truncation";
}

TEST_F(fileio_test, results_stream_keeps_bytes_until_area_fills_or_close)
{
    std::string const path = m_dir + "/results.txt";
    uni::fileio file(path, true, true);
    std::ostream* out = file.output_stream();
    ASSERT_NE(out, nullptr);

    *out << "header" << std::endl;
    out->flush();
    EXPECT_EQ(size_on_disk(path), 0u) << "flush and endl stay in the put area";

    std::string const bulk(0x40000 - 7 + 10, 'x'); // overruns the area by 10 bytes
    *out << bulk;
    EXPECT_EQ(size_on_disk(path), 0x40000u) << "the full area goes out in one piece";
    EXPECT_TRUE(out->good());
    file.close();
    EXPECT_EQ(read_file(path), "header\n" + bulk);

    uni::fileio closed;
    EXPECT_EQ(closed.output_stream(), nullptr);
}

TEST_F(fileio_test, failed_writes_leave_a_bad_stream_and_no_stray_pointers)
{
    std::string const path = m_dir + "/ro.txt";
    write_file(path, "keep");
    uni::fileio file(path, false, false); // read-only: every write fails
    std::ostream* out = file.output_stream();
    ASSERT_NE(out, nullptr);
    std::string const bulk(0x40000 * 3, 'y');
    *out << bulk << 'z' << bulk;
    EXPECT_TRUE(out->bad());
    file.close();
    EXPECT_EQ(read_file(path), "keep");
}

TEST(fileio_streams, stats_stream_sums_bytes_and_null_stream_swallows)
{
    std::uint64_t sum = 0;
    {
        uni::fileio_stats_output stats(sum, 16);
        stats << std::string(40, '\x01') << "\xff";
    }
    EXPECT_EQ(sum, 40u + 255u);

    null_out_stream() << "gone" << std::string(1 << 20, 'q') << std::endl;
    EXPECT_TRUE(null_out_stream().good());
}

TEST_F(fileio_test, make_directory_and_file_stat)
{
    std::string const folder = m_dir + "/out";
    EXPECT_TRUE(make_directory(folder));
    EXPECT_TRUE(make_directory(folder)) << "an existing folder counts as made";
    EXPECT_FALSE(make_directory(""));
    EXPECT_FALSE(make_directory(m_dir + "/no/such/parent"));

    std::string const path = m_dir + "/s.pf";
    write_file(path, "12345");
    struct stat expected {};
    ASSERT_EQ(::stat(path.c_str(), &expected), 0);
    std::uint64_t size = 9, changed = 9, modified = 9, accessed = 9;
    std::uint32_t mode = 9;
    ASSERT_TRUE(file_stat(std::wstring(path.begin(), path.end()), size, mode, changed, modified, accessed));
    EXPECT_EQ(std::vector<std::uint64_t>({size, mode, changed, modified, accessed}),
              std::vector<std::uint64_t>({5, expected.st_mode, static_cast<std::uint64_t>(expected.st_ctime),
                                          static_cast<std::uint64_t>(expected.st_mtime),
                                          static_cast<std::uint64_t>(expected.st_atime)}));
    EXPECT_FALSE(file_stat(L"/no/such/file", size, mode, changed, modified, accessed));
    EXPECT_EQ(size + mode + changed + modified + accessed, 0u);
}

} // namespace
