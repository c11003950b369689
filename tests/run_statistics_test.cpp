#include "foundation/run_statistics.h"

#include <gtest/gtest.h>

#include <regex>

#include "driver/cmd_params.h"
#include "support/run_process.h"

namespace {

TEST(run_statistics, end_of_run_chores) {
    std::string const log_path = make_temp_dir("run_statistics") + "/diag.log";
    struct { bool quiet, profile, diags; std::string err, log; } const cases[] = {
        {false, false, false, "\x1b[2K\r    \r", ""},
        {true, true, false, "->N secs\n", ""},
        {false, true, true, "\x1b[2K\r    \r->N secs\n", "->x\n->N secs"},
        {true, false, true, "", "->x\n->N secs"},
    };
    // The clock counts whole seconds, so a quick run may still cross one.
    std::regex const elapsed("->[01] secs");
    for (auto const& c : cases) {
        std::remove(log_path.c_str());
        int hook_calls = 0;
        testing::internal::CaptureStderr();
        {
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
            auto const hook = [&](std::string const* text) { hook_calls += *text == "stop"; return 0; };
            start_run_statistics(stats, options, hook);
            EXPECT_EQ(stats.m_start_stamp != 0, c.profile || c.diags); // no clock read otherwise
            options.m_diag_stream.reset(); // the driver closes the log before the end of the run
        }
        std::string const err = testing::internal::GetCapturedStderr(), log = read_file(log_path);
        EXPECT_EQ(std::tuple(std::regex_replace(err, elapsed, "->N secs"), std::regex_replace(log, elapsed, "->N secs"),
                             hook_calls), std::tuple(c.err, c.log, 1)) << c.quiet << c.profile << c.diags;
    }
}

} // namespace
