#pragma once
// What a writer works from: the file it reports on, the options it reads,
// and the state the delimited writers carry from one file of a run to the next.
#include <cstdint>
#include <string>
#include <vector>

#include "foundation/vlm_time_text.h"
#include "prefetch/prefetch_entry.h"

struct field_cell;

// The decoded file, with the names the run gave it.
struct report_subject {
    prefetch_entry const& entry;
    std::string const& file_path;      // as named on the command line or in the batch
    std::string const& file_base_name; // its last part
    std::string const& version_label;  // "Win10 Prefetch", ...
};

// The options the writers read. The defaults are those of a run without
// options; the layout is built from the formats by the option pass.
struct report_settings {
    std::string date_format = "yyyy-mm-dd";
    std::string time_format = "hh:mm:ss.xxx";
    vlm::date_time_layout date_time_layout{};
    std::string separator = " | ";
    char value_substitute_from = '|'; // replaced inside values; 0 for none
    char value_substitute_to = ';';
    bool no_padding = false;
    bool blank_before_time = true;
    bool base16 = true;          // numbers without a decimal flag in hex
    bool delimited_form = false; // one record a line: line ends in values are marked
    bool pair_datetime = false;
    bool verbose = false;
    bool show_prev_runs = false;
    bool show_prefetch_path = false;
    std::string user_name;
    std::string host_name;
    bool user_name_given = false;
    bool host_name_given = false;
    std::string program_name;      // how kito was called, for the timeline's format column
    std::uint64_t run_started = 0; // FILETIME; a run time after it is a finding
};

// What the delimited writers change as they go: whether the header line is
// still to come, and the columns the first file of the run fixed.
struct report_state {
    bool& header_pending;
    std::vector<field_cell>& column_list;
};
