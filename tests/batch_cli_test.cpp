// Batch runs of the built kito: names from standard input or a folder walk,
// the separator lines of the text report, and the exit status.
#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "foundation/vlm_portable_dir.h"
#include "support/container_encoder.h"
#include "support/prefetch_builder.h"
#include "support/run_process.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;

std::string const separator = " =================================================== \n\n";

std::size_t count_of(std::string const& text, std::string const& part)
{
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
    return count;
}

std::string text_of(std::vector<std::uint8_t> const& bytes) { return {bytes.begin(), bytes.end()}; }

// A plain version 17 file whose program name marks it in any report form.
std::vector<std::uint8_t> prefetch_named(std::u16string const& exe)
{
    auto spec = typical_prefetch(17);
    spec.exe_name = exe;
    return build_prefetch(spec).bytes;
}

class batch_cli_test : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (env_or_empty("KITO_BINARY").empty()) GTEST_SKIP() << "KITO_BINARY not set";
        write_file(m_dir + "/a.pf", text_of(prefetch_named(u"ALPHA.EXE")));
        write_file(m_dir + "/b.pf", text_of(prefetch_named(u"BRAVO.EXE")));
    }

    std::string m_dir = make_temp_dir("batch");
};

TEST_F(batch_cli_test, pipe_names_separators_and_status)
{
    std::string const a = m_dir + "/a.pf", b = m_dir + "/b.pf", missing = m_dir + "/missing.pf";
    struct pipe_case {
        char const* what;
        std::string input;
        std::size_t separators;
        std::size_t reports;
        int status;
    };
    pipe_case const cases[] = {
        {"empty input", "", 1, 0, 255},
        {"only empty lines", "\n\r\n\n", 1, 0, 255},
        {"CRLF endings", a + "\r\n" + b + "\r\n", 3, 2, 0},
        {"last name missing, no final line end", a + "\n" + b + "\n" + missing, 3, 2, 255},
        {"first name bad", missing + "\n" + a + "\n" + b + "\n", 3, 2, 0},
        {"empty lines after a good file", a + "\n\n\r\n", 2, 1, 0},
        {"a trailing blank belongs to the name", a + " \n", 1, 0, 255},
    };
    for (pipe_case const& c : cases) {
        SCOPED_TRACE(c.what);
        process_result r = run_kito({"-pipe"}, c.input);
        EXPECT_EQ(r.status, c.status);
        EXPECT_EQ(count_of(r.out, separator), c.separators);
        EXPECT_EQ(count_of(r.out, "Analyzing file: "), c.reports);
        // A failed file leaves no separator: two in a row would show one.
        EXPECT_EQ(count_of(r.out, separator + separator), 0u);
    }
    process_result r = run_kito({"-pipe"}, a + "\n" + missing + "\n");
    EXPECT_NE(r.err.find("missing.pf"), std::string::npos) << r.err;
}

TEST_F(batch_cli_test, filter_sees_raw_name_and_report_the_expanded_path)
{
    std::string const input = m_dir + "/a.pf\n" + m_dir + "/b.pf\n";
    process_result none = run_kito({"-pipe", "-filter", "*.xyz"}, input);
    EXPECT_EQ(none.status, 255);
    EXPECT_EQ(count_of(none.out, separator), 1u);
    EXPECT_EQ(count_of(none.out, "Analyzing file: "), 0u);
    EXPECT_EQ(none.err.find("pf"), std::string::npos) << "rejected names are passed over in silence";

    std::string const kito = env_or_empty("KITO_BINARY");
    std::vector<std::string> const env = {"TZ=UTC", "KITO_PF=" + m_dir + "/a.pf"};
    process_result raw = run_process(kito, {"-pipe", "-filter", "%kito_pf%"}, "%KITO_PF%\n", env);
    EXPECT_EQ(raw.status, 0) << raw.err;
    EXPECT_NE(raw.out.find("Analyzing file: " + m_dir + "/a.pf\n"), std::string::npos) << raw.out;

    process_result expanded = run_process(kito, {"-pipe", "-filter", "a.pf"}, "%KITO_PF%\n", env);
    EXPECT_EQ(expanded.status, 255) << "the filter is tested before expansion";
}

TEST_F(batch_cli_test, pipe_wins_over_enumdir_and_a_fifo_does_not_block)
{
    std::string const walked = make_temp_dir("walked");
    write_file(walked + "/c.pf", text_of(prefetch_named(u"CHARLIE.EXE")));
    process_result r = run_kito({"-pipe", "-enumdir", walked}, m_dir + "/a.pf\n");
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("ALPHA.EXE"), std::string::npos);
    EXPECT_EQ(r.out.find("CHARLIE.EXE"), std::string::npos);

    std::string const fifo = m_dir + "/names.fifo";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    // Under timeout, so that a blocking open fails the test instead of hanging it.
    process_result f = run_process("/usr/bin/timeout", {"20", env_or_empty("KITO_BINARY"), "-pipe"},
                                   fifo + "\n" + m_dir + "/b.pf\n", {"TZ=UTC"});
    EXPECT_EQ(f.status, 0) << f.err;
    EXPECT_NE(f.out.find("BRAVO.EXE"), std::string::npos);
}

TEST_F(batch_cli_test, walk_order_and_depth)
{
    // root: r1 r2, sub/: s1, sub/deep/: d1. Depth 1 reads root and sub, not deep.
    std::string const root = make_temp_dir("tree");
    fs::create_directories(root + "/sub/deep");
    std::pair<char const*, std::u16string> const files[] = {
        {"/r1.pf", u"ROOTONE.EXE"}, {"/r2.pf", u"ROOTTWO.EXE"}, {"/sub/s1.pf", u"SUBONE.EXE"},
        {"/sub/deep/d1.pf", u"DEEPONE.EXE"}};
    for (auto const& [name, exe] : files) write_file(root + name, text_of(prefetch_named(exe)));

    process_result r = run_kito({"-enumdir", root, "-num_subdirs", "1"});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out.find("DEEPONE.EXE"), std::string::npos) << "below the depth limit";

    // The root's files in reverse listing order, then the sub-folder's.
    std::vector<vlmportdir::dir_entry> listing;
    vlmportdir::list_directory(root + "/", listing, 0, false, true);
    std::vector<std::string> expected;
    for (auto it = listing.rbegin(); it != listing.rend(); ++it)
        if (!it->is_dir) expected.push_back(it->path);
    expected.push_back(root + "/sub/s1.pf");
    std::vector<std::size_t> at;
    for (std::string const& path : expected) at.push_back(r.out.find("Analyzing file: " + path + "\n"));
    ASSERT_EQ(std::count(at.begin(), at.end(), std::string::npos), 0) << r.out;
    EXPECT_TRUE(std::is_sorted(at.begin(), at.end()));
    EXPECT_EQ(count_of(r.out, separator), 4u);

    process_result shallow = run_kito({"-enumdir", root});
    EXPECT_EQ(count_of(shallow.out, "Analyzing file: "), 2u) << "default depth reads only the named folder";
    EXPECT_EQ(run_kito({"-enumdir", root + "/absent"}).status, 255);
}

// Peak resident size of one kito run over a list of names, in KiB.
long peak_rss_kib(std::string const& list_path)
{
    std::string const kito = env_or_empty("KITO_BINARY");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, list_path.c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    char* argv[] = {const_cast<char*>(kito.c_str()), const_cast<char*>("-pipe"), nullptr};
    pid_t pid = 0;
    int const spawned = posix_spawn(&pid, kito.c_str(), &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) return -1;
    int status = 0;
    rusage usage{};
    if (::wait4(pid, &status, 0, &usage) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0) return -1;
    return usage.ru_maxrss;
}

TEST_F(batch_cli_test, memory_stays_flat_over_thousands_of_files)
{
    std::string const many = make_temp_dir("many");
    std::vector<std::uint8_t> const bytes = prefetch_named(u"MANY.EXE");
    std::string list_small, list_large;
    for (int i = 0; i < 3000; ++i) {
        std::string const path = many + "/f" + std::to_string(i) + ".pf";
        write_file(path, text_of(bytes));
        (i < 200 ? list_small : list_large) += path + "\n";
    }
    list_large = list_small + list_large;
    write_file(many + "/small.txt", list_small);
    write_file(many + "/large.txt", list_large);

    // Under AddressSanitizer freed blocks sit in a quarantine that would grow
    // with the number of files; turn it off for the children (others ignore it).
    char const* sanitizer = std::getenv("ASAN_OPTIONS");
    std::string const saved = sanitizer ? sanitizer : "";
    ::setenv("ASAN_OPTIONS", (saved + ":quarantine_size_mb=0:thread_local_quarantine_size_kb=0").c_str(), 1);
    long const small = peak_rss_kib(many + "/small.txt");
    long const large = peak_rss_kib(many + "/large.txt");
    if (sanitizer) ::setenv("ASAN_OPTIONS", saved.c_str(), 1);
    else ::unsetenv("ASAN_OPTIONS");
    ASSERT_GT(small, 0);
    ASSERT_GT(large, 0);
    // Fifteen times the files may not cost more than a little slack.
    EXPECT_LT(large, small + 2048) << "peak RSS " << small << " KiB for 200 files, " << large << " for 3000";
}

TEST_F(batch_cli_test, decompress_to_file_and_folder)
{
    std::vector<std::uint8_t> const plain = prefetch_named(u"PACKED.EXE");
    write_file(m_dir + "/packed.pf", text_of(encode_mam(plain)));

    std::string const target = m_dir + "/unpacked.pf";
    process_result one = run_kito({"-decompress_to", target, m_dir + "/packed.pf"});
    EXPECT_EQ(one.status, 0);
    EXPECT_EQ(one.err.find("\x1b[2K\r    \rSuccess\n"), 0u) << "the line is wiped, then the word of success";
    EXPECT_EQ(read_file(target), text_of(plain));

    std::string const folder = m_dir + "/outdir";
    std::string const input = m_dir + "/missing.pf\n" + m_dir + "/packed.pf\n" + m_dir + "/a.pf\n";
    process_result batch = run_kito({"-pipe", "-decompress_to", folder}, input);
    EXPECT_EQ(batch.status, 0) << "one good write makes the run a success";
    EXPECT_NE(batch.err.find("Prob reading file " + m_dir + "/missing.pf\n"), std::string::npos) << batch.err;
    EXPECT_NE(batch.err.find("Prob decoding file " + m_dir + "/a.pf \n"), std::string::npos) << batch.err;
    EXPECT_EQ(read_file(folder + "/packed.pf"), text_of(plain));
    EXPECT_FALSE(fs::exists(folder + "/a.pf"));

    EXPECT_EQ(run_kito({"-decompress_to", target, m_dir + "/a.pf"}).status, 255);
}

} // namespace
