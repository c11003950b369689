#include "foundation/run_statistics.h"

#include <gtest/gtest.h>

#include <regex>

#include "driver/cmd_params.h"
#include "driver/foundation_adapters.h"
#include "support/run_process.h"
#include "support/test_table.h"

namespace {

TEST(run_statistics, end_of_run_chores) {
    temp_folder const dir("run_statistics");
    std::string const log_path = dir / "diag.log";
    // The clock counts whole seconds, so a quick run may still cross one.
    std::regex const elapsed("->[01] secs");
    for (json const& row : test_rows("run_statistics", "ends")) {
        struct { bool quiet, profile, diags; std::string err, log; } const c{row[0], row[1], row[2], row[3], row[4]};
        write_file(log_path, c.diags ? "->x\n" : "");
        int hook_calls = 0;
        testing::internal::CaptureStderr();
        {
            run_statistics stats;
            auto const hook = [&](std::string const* text) { hook_calls += *text == "stop"; return 0; };
            start_run_statistics(stats, run_end_options{!c.quiet, c.profile, c.diags ? log_path : "", "stop"}, hook);
            EXPECT_EQ(stats.m_start_stamp != 0, c.profile || c.diags); // no clock read otherwise
        }
        std::string const err = testing::internal::GetCapturedStderr(), log = read_file(log_path);
        EXPECT_EQ(std::tuple(std::regex_replace(err, elapsed, "->N secs"), std::regex_replace(log, elapsed, "->N secs"),
                             hook_calls), std::tuple(c.err, c.log, 1)) << c.quiet << c.profile << c.diags;
    }
}

// The driver's form picks its fields out of the options; a -diags log counts only while it is open and good.
TEST(run_statistics, options_adapter) {
    temp_folder const dir("run_statistics");
    for (int log_state : {0, 1, 2}) { // none, open, gone bad
        cmd_params options(0);
        options.m_show_progress = log_state != 1;
        options.m_profile = log_state != 0;
        options.m_signal_text = "s";
        options.m_diag_path = dir / "diag.log";
        options.m_diag_enabled = log_state != 0;
        options.m_diag_stream = std::make_unique<uni::ofstream>(options.m_diag_path);
        if (log_state == 2) options.m_diag_stream->setstate(std::ios::badbit);
        run_statistics stats;
        start_run_statistics(stats, options, [](std::string const*) { return 0; });
        EXPECT_EQ(std::tuple(stats.m_wipe_progress, stats.m_report_to_stderr, stats.m_log_path, stats.m_hook_argument),
                  std::tuple(log_state != 1, log_state != 0, log_state == 1 ? options.m_diag_path : "", "s"));
        stats.m_wipe_progress = false; // a quiet end: the chores are the test above
        stats.m_start_stamp = 0;
    }
}

} // namespace
