#pragma once
// The end-of-run chores, tied to one object that the driver keeps for the
// whole run, so that no return path of main can forget them: wipe the
// progress line, say how long the run took, run the clean-up hook.
#include <cstdint>
#include <functional>
#include <string>

class cmd_params;

using run_hook = std::function<int(std::string const*)>;

class run_statistics {
public:
    run_statistics() = default;
    run_statistics(run_statistics const&) = delete;
    run_statistics& operator=(run_statistics const&) = delete;
    // Runs the chores. noexcept: an exception in here ends the process.
    ~run_statistics() noexcept;

    bool m_wipe_progress = false;
    std::uint64_t m_start_stamp = 0; // NTP form; zero when timing is off
    bool m_report_to_stderr = false;
    std::string m_log_path;
    std::string m_hook_argument;
    run_hook m_hook;
};

// Reads the options once, after the option pass and before the results file
// is opened. The hook is kept only when -signal gave it an argument.
void start_run_statistics(run_statistics& stats, cmd_params const& options, run_hook hook = {});

// NTP form: big-endian seconds since 1900 in the low four bytes, big-endian
// fraction of 2^32 in the high four.
std::uint64_t ntp_now();
bool ticks_to_ntp(std::uint64_t ticks, std::uint64_t& out);
// The distance between two NTP stamps in seconds, never negative.
double ntp_difference(std::uint64_t a, std::uint64_t b);
