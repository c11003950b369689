#include "foundation/run_statistics.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <regex>

#include "driver/cmd_params.h"
#include "support/run_process.h"

namespace {

// Standard error of everything done in `body`, read back from a file.
template <typename F>
std::string captured_stderr(F body)
{
    std::fflush(stderr);
    std::FILE* sink = std::tmpfile();
    int const saved = dup(fileno(stderr));
    dup2(fileno(sink), fileno(stderr));
    body();
    std::fflush(stderr);
    dup2(saved, fileno(stderr));
    close(saved);
    std::string text;
    std::rewind(sink);
    for (int c; (c = std::fgetc(sink)) != EOF;) text += static_cast<char>(c);
    std::fclose(sink);
    return text;
}

TEST(run_statistics, ntp_stamps)
{
    std::uint64_t stamp = 1;
    EXPECT_TRUE(ticks_to_ntp(94354848000000000ULL, stamp)); // 1900-01-01
    EXPECT_EQ(stamp, 0u);
    // 1970-01-01 is 2208988800 = 0x83AA7E80 seconds: big-endian in the low half.
    EXPECT_TRUE(ticks_to_ntp(116444736000000000ULL, stamp));
    EXPECT_EQ(stamp, 0x807EAA83u);
    EXPECT_FALSE(ticks_to_ntp(0x8000000000000000ULL, stamp));
    EXPECT_EQ(stamp, 0u);

    std::uint64_t later = 0;
    ticks_to_ntp(116444736000000000ULL + 12 * 10000000ULL + 5000000, later); // half a second on
    ticks_to_ntp(116444736000000000ULL, stamp);
    EXPECT_DOUBLE_EQ(ntp_difference(later, stamp), 12.5);
    EXPECT_DOUBLE_EQ(ntp_difference(stamp, later), 12.5);
}

TEST(run_statistics, end_of_run_chores)
{
    std::string const dir = make_temp_dir("run_statistics");
    std::string const log_path = dir + "/diag.log";
    struct case_row {
        bool quiet, profile, diags;
        std::string err;
        std::string log;
    } const cases[] = {
        {false, false, false, "\x1b[2K\r    \r", ""},
        {true, false, false, "", ""},
        {true, true, false, "->N secs\n", ""},
        {false, true, true, "\x1b[2K\r    \r->N secs\n", "->x\n->N secs"},
        {true, false, true, "", "->x\n->N secs"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(testing::Message() << c.quiet << c.profile << c.diags);
        std::remove(log_path.c_str());
        int hook_calls = 0;
        std::string const err = captured_stderr([&] {
            cmd_params options(0);
            options.m_show_progress = !c.quiet;
            options.m_profile = c.profile;
            options.m_signal_text = "stop";
            if (c.diags) {
                options.m_diag_path = log_path;
                options.m_diag_stream = std::make_unique<uni::ofstream>(log_path);
                options.m_diag_enabled = true;
                options.diag_line("x");
            }
            run_statistics stats;
            start_run_statistics(stats, options, [&](std::string const* text) {
                hook_calls += *text == "stop";
                return 0;
            });
            EXPECT_EQ(stats.m_start_stamp != 0, c.profile || c.diags); // no clock read otherwise
            options.m_diag_stream.reset(); // the driver closes the log before the end of the run
        });
        // The clock counts whole seconds, so a quick run may still cross one.
        std::regex const elapsed("->[01] secs");
        EXPECT_EQ(std::regex_replace(err, elapsed, "->N secs"), c.err);
        EXPECT_EQ(hook_calls, 1);
        std::ifstream log(log_path, std::ios::binary);
        std::string const logged(std::istreambuf_iterator<char>(log), {});
        EXPECT_EQ(std::regex_replace(logged, elapsed, "->N secs"), c.log);
    }
}

} // namespace
