#include "driver/foundation_adapters.h"

#include <utility>

#include "driver/cmd_params.h"

namespace {

time_range time_range_of(cmd_params const& options) { return {options.m_start_bound, options.m_stop_bound}; }

} // namespace

bool matches_filter(cmd_params const& options, std::wstring const& path, std::vector<filter_entry> const& filter,
                    file_info* info, bool stream_mode)
{
    return matches_filter(time_range_of(options), path, filter, info, stream_mode);
}

bool matches_filter(cmd_params const& options, std::string const& path, std::vector<filter_entry> const& filter,
                    file_info* info, bool stream_mode)
{
    return matches_filter(time_range_of(options), path, filter, info, stream_mode);
}

void start_run_statistics(run_statistics& stats, cmd_params const& options, run_hook hook)
{
    run_end_options end;
    end.show_progress = options.m_show_progress;
    // A log that failed to open, or went bad, gets no time line.
    if (options.m_diag_enabled && options.m_diag_stream && options.m_diag_stream->good())
        end.log_path = options.m_diag_path;
    end.profile = options.m_profile;
    end.signal_text = options.m_signal_text;
    start_run_statistics(stats, end, std::move(hook));
}
