#pragma once
// What one decoded Prefetch file leaves for the writers. The file's bytes are
// gone by the time a writer runs: everything a report shows stands here.
#include <array>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "prefetch/offset_string_map.h"

struct prefetch_entry {
    std::uint32_t run_count = 0;
    std::string target_name;
    std::string target_path;
    // Facts of the input file from the file system; times as FILETIME.
    std::uint64_t input_file_size = 0;
    std::uint32_t input_file_mode = 0;
    std::uint64_t input_modified = 0;
    std::uint64_t input_accessed = 0;
    std::uint64_t input_unused_time = 0; // a fourth slot of the same record, always zero
    std::uint64_t input_stats_changed = 0;
    std::string input_time_label;  // "Time last run"
    std::string input_time_source; // short source tag
    std::uint32_t input_time_kind = 0;

    std::uint64_t last_run = 0;
    std::set<std::uint64_t> entry_times;
    std::set<std::uint64_t> prev_run_times;
    offset_string_map file_strings;
    std::vector<std::string> volume_paths;
    std::vector<std::uint64_t> volume_times;
    std::vector<std::uint32_t> volume_serials;
    std::vector<std::array<std::uint8_t, 40>> volume_records;
    std::vector<offset_string_map> volume_dirs;
};
