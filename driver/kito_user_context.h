#pragma once
// The one context of a run: the options, the driver's fields, the decoded
// entry of the file in hand, and the report state that lives through the run.
#include <string>
#include <vector>

#include "driver/cmd_params.h"
#include "prefetch/decode_buffers.h"
#include "prefetch/prefetch_entry.h"
#include "reports/field_output.h"
#include "reports/html_report.h"
#include "reports/json_report.h"

class kito_user_context : public cmd_params {
public:
    // Records the present moment as the start of the run.
    kito_user_context();

    std::string m_file_path;
    std::string m_file_base_name;
    bool m_show_prev_runs = false;
    bool m_show_prefetch_path = false;
    bool m_show_target_path = false;
    bool m_decompress_only = false;
    std::string m_decompress_target;
    bool m_scan_volume = false;
    std::string m_volume_root;

    prefetch_entry m_entry;
    // Input files handed to the decoder in this run, and those reported.
    std::uint64_t m_files_handled = 0;
    std::uint64_t m_files_reported = 0;
    check_tally m_check_tally; // what the -json and -html summaries count beside those
    decode_buffers m_buffers;

    // Report state: the columns of the delimited table, fixed by the first file.
    std::vector<field_cell> m_column_list;
    // What the HTML page carries from one file to the next.
    html_page_state m_html_page;
};

// Reset, forced long form, the common pass, and what is particular to Prefetch.
bool parse_tool_options(kito_user_context& context, arg_list& list, std::string const& version);
