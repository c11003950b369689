#include "foundation/uni_fileio.h"

#include <chrono>
#include <fcntl.h>
#include <future>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/run_process.h"
#include "support/test_table.h"

namespace {

using bytes = std::vector<std::uint8_t>;
bytes vec_of(std::string const& text) { return {text.begin(), text.end()}; }

class fileio_test : public ::testing::Test {
protected:
    temp_folder const m_folder{"fileio"};
    std::string m_dir = m_folder.path();
};

TEST_F(fileio_test, loaders_and_reads_honour_limits_and_refuse_empty_missing_or_folders) {
    std::string const data = m_dir + "/data.pf", empty = m_dir + "/empty.pf";
    write_file(data, "SCCA-and-more");
    write_file(empty, "");
    for (json const& c : test_rows("fileio", "prefixes")) {
        bytes out{1, 2, 3};
        std::string const path = c[0] == "" ? "" : m_dir + c[0].get<std::string>(), want = c[2];
        bool const ok = read_file_prefix(path, c[1], out);
        EXPECT_EQ(std::pair(ok, out), std::pair(!want.empty(), vec_of(want))) << c;
    }
    bytes whole, out;
    EXPECT_TRUE(!read_whole_file(whole, empty, ~0u) && read_whole_file(whole, data, ~0u) && whole.size() == 13);
    // /proc files report no end: the size is taken as 0x40000 and the short read cuts the vector.
    EXPECT_EQ(uni::fileio("/proc/self/status", false, false).size(), 0x40000u);
    ASSERT_TRUE(read_file_prefix("/proc/self/status", ~0u, out));
    EXPECT_EQ(std::string(out.begin(), out.begin() + 5) + std::to_string(out.size() < 0x40000), "Name:1");
}

TEST_F(fileio_test, fifo_is_refused_without_blocking) {
    std::string const fifo = m_dir + "/names.fifo";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    auto attempt = std::async(std::launch::async, [&] {
        uni::fileio reader(fifo, false, false), writer(fifo, true, false);
        bytes out;
        return reader.is_open() || writer.is_open() || read_file_prefix(fifo, 16, out);
    });
    if (attempt.wait_for(std::chrono::seconds(10)) != std::future_status::ready) {
        int writer = ::open(fifo.c_str(), O_RDWR); // release the blocked open so that the test can end
        attempt.wait();
        ::close(writer);
        FAIL() << "open blocked on a FIFO";
    }
    EXPECT_FALSE(attempt.get());
}

TEST_F(fileio_test, append_only_writes_and_a_results_stream_that_holds_its_area) {
    std::string const path = m_dir + "/a.txt";
    write_file(path, "abc");
    uni::fileio file(path, true, false);
    std::uint8_t const more[] = {'d', 'e'};
    EXPECT_TRUE(file.append(more, 0) && !file.append(nullptr, 2) && file.append(more, 2) && file.size() == 5);
    file.close();
    EXPECT_EQ(read_file(path), "abcde");
    EXPECT_FALSE(uni::fileio(m_dir + "/none.txt", true, false).is_open()) << "no truncation, no creation";
    // Flush and endl stay in the put area; a full area goes out in one piece.
    std::string const bulk(0x40000 - 7 + 10, 'x');
    file.open(path, true, true);
    std::ostream* out = file.output_stream();
    *out << "header" << std::endl << std::flush;
    EXPECT_EQ(read_file(path), "");
    *out << bulk;
    EXPECT_EQ(read_file(path).size(), 0x40000u);
    file.close();
    EXPECT_EQ(read_file(path), "header\n" + bulk);
    EXPECT_EQ(file.output_stream(), nullptr);
    uni::fileio read_only(path, false, false); // every write fails, the stream goes bad
    out = read_only.output_stream();
    *out << bulk << bulk << 'z' << bulk;
    EXPECT_TRUE(out->bad());
}

TEST_F(fileio_test, make_directory_and_file_stat) {
    EXPECT_TRUE(make_directory(m_dir + "/out") && make_directory(m_dir + "/out")); // an existing one counts
    std::string const path = m_dir + "/s.pf";
    write_file(path, "12345");
    struct stat e {};
    std::uint64_t size = 9, changed = 9, modified = 9, accessed = 9;
    std::uint32_t mode = 9;
    ASSERT_TRUE(file_stat(std::wstring(path.begin(), path.end()), size, mode, changed, modified, accessed));
    ASSERT_EQ(::stat(path.c_str(), &e), 0);
    EXPECT_EQ(std::tuple(size, mode, changed, modified, accessed),
              std::tuple(5, e.st_mode, e.st_ctime, e.st_mtime, e.st_atime));
    EXPECT_FALSE(file_stat(L"/no/such/file", size, mode, changed, modified, accessed));
    EXPECT_EQ(size + mode + changed + modified + accessed, 0u);
}

} // namespace
