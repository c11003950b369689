// Batch runs of the built kito: names from standard input or a folder walk, the separators and the exit status.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>

#include "support/prefetch_builder.h"
#include "support/run_process.h"

extern char** environ;

namespace {

using arg_words = std::vector<std::string>;
std::string const separator = " =================================================== \n\n";

std::vector<std::uint8_t> prefetch_named(std::u16string const& exe)
{
    auto layout = typical_prefetch(17);
    layout.exe_name = exe;
    return build_prefetch(layout).bytes;
}

class batch_cli_test : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (kito.empty()) GTEST_SKIP() << "KITO_BINARY not set";
        write_file(a, prefetch_named(u"ALPHA.EXE"));
        write_file(b, prefetch_named(u"BRAVO.EXE"));
    }
    temp_folder const folder{"batch"};
    std::string kito = env_or_empty("KITO_BINARY"), dir = folder.path(), a = dir + "/a.pf", b = dir + "/b.pf";
};

TEST_F(batch_cli_test, pipe_names_separators_and_status)
{
    std::string const missing = dir + "/missing.pf";
    struct row { char const* what; std::string input; std::size_t separators, reports; int status; } const rows[] = {
        {"empty input", "", 1, 0, 255}, {"only empty lines", "\n\r\n\n", 1, 0, 255},
        {"CRLF endings", a + "\r\n" + b + "\r\n", 3, 2, 0}, {"empty lines after a good file", a + "\n\n\r\n", 2, 1, 0},
        {"last name missing, no final line end", a + "\n" + b + "\n" + missing, 3, 2, 255},
        {"first name bad", missing + "\n" + a + "\n" + b + "\n", 3, 2, 0}, {"a trailing blank is the name's", a + " \n", 1, 0, 255},
        {"-filter rejects all, in silence", a + "\n" + b + "\n", 1, 0, 255},
    };
    for (row const& r : rows) {
        SCOPED_TRACE(r.what);
        bool const filtered = r.what[0] == '-';
        process_result const p = run_kito(filtered ? arg_words{"-pipe", "-filter", "*.xyz"} : arg_words{"-pipe"}, r.input);
        EXPECT_EQ(std::tuple(p.status, count_of(p.out, separator), count_of(p.out, "Analyzing file: ")),
                  std::tuple(r.status, r.separators, r.reports));
        EXPECT_EQ(count_of(p.out, separator + separator), 0u) << "a failed file leaves no separator";
        EXPECT_EQ(p.err.find("missing.pf") != std::string::npos, r.input.find(missing) != std::string::npos) << p.err;
        EXPECT_TRUE(!filtered || p.err.find("pf") == std::string::npos) << p.err;
    }
}

// Both streams into one file, as "> log 2>&1" makes them: each report is out
// whole before the next file's message. The separator behind a report is
// written with the next report (or at the end), so it follows the messages
// of the files between.
TEST_F(batch_cli_test, reports_and_messages_keep_their_order_in_one_file)
{
    std::string const missing = dir + "/missing.pf", empty = dir + "/empty.pf", list = dir + "/list.txt";
    write_file(empty, "");
    read_file(a), read_file(b); // accessed times settle before the two runs
    std::string const input = a + "\n" + missing + "\n" + empty + "\n" + b + "\n";
    write_file(list, input);
    process_result const apart = run_kito({"-pipe"}, input);
    process_result const together =
        run_process("/bin/sh", {"-c", "\"$0\" -pipe < \"$1\" > \"$2\" 2>&1", kito, list, dir + "/both.txt"}, {}, {"TZ=UTC"});
    ASSERT_EQ(together.status, 0);
    std::string const both = read_file(dir + "/both.txt");

    // Standard output alone: header, separator, report a, separator, report b, separator.
    std::vector<std::string> parts;
    for (std::size_t at = 0, next; (next = apart.out.find(separator, at)) != std::string::npos; at = next + separator.size())
        parts.push_back(apart.out.substr(at, next - at));
    ASSERT_EQ(parts.size(), 3u);
    // Standard error alone: the two messages, then the wiping of the progress line.
    std::size_t const wipe = apart.err.find("\x1b[2K");
    ASSERT_NE(wipe, std::string::npos);
    std::string const messages = apart.err.substr(0, wipe);
    EXPECT_EQ(messages, "prob reading file " + missing + "\nprob reading file " + empty + "\n");

    std::string const header = both.substr(0, both.find(separator)); // holds the moment of its own run
    EXPECT_EQ(both, header + separator + parts[1] + messages + separator + parts[2] + apart.err.substr(wipe) + separator);
}

TEST_F(batch_cli_test, names_are_filtered_raw_pipe_wins_and_a_fifo_does_not_block)
{
    std::vector<std::string> const env = {"TZ=UTC", "KITO_PF=" + a};
    process_result const raw = run_process(kito, {"-pipe", "-filter", "%kito_pf%"}, "%KITO_PF%\n", env);
    EXPECT_TRUE(raw.status == 0 && raw.out.find("Analyzing file: " + a + "\n") != std::string::npos) << raw.err << raw.out;
    EXPECT_EQ(run_process(kito, {"-pipe", "-filter", "a.pf"}, "%KITO_PF%\n", env).status, 255);
    std::string const walked = dir + "/walked", fifo = dir + "/names.fifo";
    std::filesystem::create_directory(walked);
    write_file(walked + "/c.pf", prefetch_named(u"CHARLIE.EXE"));
    process_result const p = run_kito({"-pipe", "-enumdir", walked}, a + "\n");
    EXPECT_EQ(p.status, 0) << p.err;
    EXPECT_TRUE(p.out.find("ALPHA.EXE") != std::string::npos && p.out.find("CHARLIE.EXE") == std::string::npos);

    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    // Under timeout, so that a blocking open fails the test instead of hanging it.
    process_result const f = run_process("/usr/bin/timeout", {"20", kito, "-pipe"}, fifo + "\n" + b + "\n", {"TZ=UTC"});
    EXPECT_TRUE(f.status == 0 && f.out.find("BRAVO.EXE") != std::string::npos) << f.err;
}

// The range looks at the modified time on disk, and only where a filter is given: the files were written just now.
TEST_F(batch_cli_test, time_range_needs_a_filter_and_reads_the_modified_time)
{
    struct row { arg_words words; std::size_t reports; } const rows[] = {
        {{"-pipe", "-cmd_start_time", "2090-01-01"}, 2},
        {{"-pipe", "-filter", "*.pf", "-cmd_start_time", "2000-01-01"}, 2},
        {{"-pipe", "-filter", "*.pf", "-cmd_start_time", "2090-01-01"}, 0},
        {{"-pipe", "-filter", "*.pf", "-cmd_stop_time", "2000-01-01"}, 0},
    };
    for (row const& r : rows) {
        process_result const p = run_kito(r.words, a + "\n" + b + "\n");
        EXPECT_EQ(count_of(p.out, "Analyzing file: "), r.reports) << testing::PrintToString(r.words);
    }
}

// Depth 1 reads the root and sub, not sub/deep; by default only the root. The
// order of the walk is vlmportdir's, pinned in portable_dir_test.
TEST_F(batch_cli_test, walk_depth)
{
    std::string const root = dir + "/tree";
    std::filesystem::create_directories(root + "/sub/deep");
    for (auto const& [name, exe] : {std::pair{"/r1.pf", u"ROOTONE.EXE"}, {"/r2.pf", u"ROOTTWO.EXE"},
                                    {"/sub/s1.pf", u"SUBONE.EXE"}, {"/sub/deep/d1.pf", u"DEEPONE.EXE"}})
        write_file(root + name, prefetch_named(exe));
    process_result const p = run_kito({"-enumdir", root, "-num_subdirs", "1"});
    EXPECT_TRUE(p.status == 0 && p.out.find("DEEPONE.EXE") == std::string::npos) << p.err;
    EXPECT_EQ(std::pair(count_of(p.out, separator), count_of(p.out, "Analyzing file: " + root + "/sub/s1.pf\n")), std::pair(4ul, 1ul));
    EXPECT_EQ(count_of(run_kito({"-enumdir", root}).out, "Analyzing file: "), 2u);
    EXPECT_EQ(run_kito({"-enumdir", root + "/absent"}).status, 255);
}

// Peak resident size in KiB of one kito run over these names; spawned, as a fork would count this process.
long peak_rss_kib(std::string const& kito, std::string const& list_path, std::string const& names)
{
    write_file(list_path, names);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, list_path.c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    char* argv[] = {const_cast<char*>(kito.c_str()), const_cast<char*>("-pipe"), nullptr};
    pid_t pid = 0;
    int status = 0;
    rusage usage{};
    bool const ok = posix_spawn(&pid, kito.c_str(), &actions, nullptr, argv, environ) == 0 &&
                    ::wait4(pid, &status, 0, &usage) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    posix_spawn_file_actions_destroy(&actions);
    return ok ? usage.ru_maxrss : -1;
}

TEST_F(batch_cli_test, memory_stays_flat_over_thousands_of_files)
{
    std::string const many = dir + "/many";
    auto const bytes = prefetch_named(u"MANY.EXE");
    std::filesystem::create_directory(many);
    std::string names[2];
    for (int i = 0; i < 3000; ++i) {
        write_file(many + "/f" + std::to_string(i) + ".pf", bytes);
        names[i < 200 ? 0 : 1] += many + "/f" + std::to_string(i) + ".pf\n";
    }
    // AddressSanitizer's quarantine of freed blocks grows with the files: off for the children (others ignore it).
    char const* sanitizer = std::getenv("ASAN_OPTIONS");
    std::string const saved = sanitizer ? sanitizer : "";
    ::setenv("ASAN_OPTIONS", (saved + ":quarantine_size_mb=0:thread_local_quarantine_size_kb=0").c_str(), 1);
    long const small = peak_rss_kib(kito, many + "/small.txt", names[0]);
    long const large = peak_rss_kib(kito, many + "/large.txt", names[0] + names[1]);
    sanitizer ? ::setenv("ASAN_OPTIONS", saved.c_str(), 1) : ::unsetenv("ASAN_OPTIONS");
    ASSERT_GT(small, 0);
    EXPECT_LT(large, small + 2048) << "peak RSS " << small << " KiB for 200 files, " << large << " for 3000";
}

} // namespace
