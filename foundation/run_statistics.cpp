#include "foundation/run_statistics.h"

#include <sys/time.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include "foundation/vlm_time.h"

namespace {

constexpr std::uint64_t ntp_epoch_ticks = 94354848000000000ULL; // 1900-01-01 as FILETIME

std::uint32_t byte_swapped(std::uint32_t v)
{
    return (v >> 24) | ((v >> 8) & 0xFF00u) | ((v << 8) & 0xFF0000u) | (v << 24);
}

} // namespace

bool ticks_to_ntp(std::uint64_t ticks, std::uint64_t& out)
{
    out = 0;
    if (ticks >> 63) return false;
    std::uint64_t const since_1900 = ticks - ntp_epoch_ticks;
    auto const seconds = static_cast<std::uint32_t>(since_1900 / vlm::ticks_per_second);
    auto const fraction =
        static_cast<std::uint32_t>((since_1900 % vlm::ticks_per_second << 32) / vlm::ticks_per_second);
    out = std::uint64_t{byte_swapped(seconds)} | (std::uint64_t{byte_swapped(fraction)} << 32);
    return true;
}

std::uint64_t ntp_now()
{
    // Whole seconds only: the microseconds of the clock are dropped, so a run
    // under a second reports 0.
    timeval now{};
    gettimeofday(&now, nullptr);
    vlm::time const t(static_cast<std::uint64_t>(now.tv_sec), vlm::unix_time);
    std::uint64_t stamp = 0;
    ticks_to_ntp(t.filetime_ticks, stamp);
    return stamp;
}

double ntp_difference(std::uint64_t a, std::uint64_t b)
{
    auto const seconds_of = [](std::uint64_t stamp) {
        double const whole = byte_swapped(static_cast<std::uint32_t>(stamp));
        double const fraction = byte_swapped(static_cast<std::uint32_t>(stamp >> 32));
        return whole + fraction / 4294967296.0;
    };
    double const x = seconds_of(a);
    double const y = seconds_of(b);
    return x > y ? x - y : y - x;
}

void start_run_statistics(run_statistics& stats, run_end_options const& options, run_hook hook)
{
    stats.m_wipe_progress = options.show_progress;
    stats.m_log_path = options.log_path;
    stats.m_report_to_stderr = options.profile;
    if (stats.m_report_to_stderr || !stats.m_log_path.empty()) stats.m_start_stamp = ntp_now();
    if (hook && !options.signal_text.empty()) {
        stats.m_hook = std::move(hook);
        stats.m_hook_argument = options.signal_text;
    }
}

run_statistics::~run_statistics() noexcept
{
    if (m_wipe_progress) {
        // Clear the terminal line, whether or not anything was drawn on it.
        std::fputs("\x1b[2K\r    \r", stderr);
        std::fflush(stderr);
    }
    if (m_start_stamp != 0) {
        std::ostringstream text;
        text << "->" << ntp_difference(ntp_now(), m_start_stamp) << " secs";
        if (m_report_to_stderr) {
            std::fputs((text.str() + "\n").c_str(), stderr);
            std::fflush(stderr);
        }
        if (!m_log_path.empty()) {
            std::ofstream log(m_log_path, std::ios::out | std::ios::app);
            if (log) log << text.str();
        }
    }
    if (m_hook && !m_hook_argument.empty()) m_hook(&m_hook_argument);
}
