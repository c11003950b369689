#pragma once
// The end-of-run chores, tied to one object that the driver keeps for the
// whole run, so that no return path of main can forget them: wipe the
// progress line, say how long the run took, run the clean-up hook.
#include <cstdint>
#include <functional>
#include <string>

// What the end of the run needs to know of the options.
struct run_end_options {
    bool show_progress = false; // progress output is on (no -quiet)
    bool profile = false;       // -profile: the time taken goes to standard error
    std::string log_path;       // an open -diags log, which gets the time taken; empty for none
    std::string signal_text;    // -signal: the hook's argument
};

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

// Takes what it needs of the options once, after the option pass and before
// the results file is opened; the clock is read only when the time taken is
// to be told. The hook is kept only when -signal gave it an argument.
void start_run_statistics(run_statistics& stats, run_end_options const& options, run_hook hook = {});

// NTP form: big-endian seconds since 1900 in the low four bytes, big-endian
// fraction of 2^32 in the high four.
std::uint64_t ntp_now();
bool ticks_to_ntp(std::uint64_t ticks, std::uint64_t& out);
// The distance between two NTP stamps in seconds, never negative.
double ntp_difference(std::uint64_t a, std::uint64_t b);
