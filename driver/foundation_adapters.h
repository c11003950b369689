#pragma once
// The filter and the end of the run as the driver calls them, with the whole
// option set: each adapter picks out the few fields that the foundation form
// reads, so that the foundation units never see the options.
#include <string>
#include <vector>

#include "foundation/run_statistics.h"
#include "foundation/vlm_path_rules.h"

class cmd_params;

// The time range is that of -cmd_start_time and -cmd_stop_time.
bool matches_filter(cmd_params const& options, std::wstring const& path, std::vector<filter_entry> const& filter,
                    file_info* info, bool stream_mode);
bool matches_filter(cmd_params const& options, std::string const& path, std::vector<filter_entry> const& filter,
                    file_info* info, bool stream_mode);

// Progress output, -profile, an open -diags log and -signal.
void start_run_statistics(run_statistics& stats, cmd_params const& options, run_hook hook = {});
