#pragma once
// Every option of a run ends up here, as a plain field of the one context.
// Which option writes which field, and in which order, is the option pass's.
#include <cstdint>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "driver/arg_list.h"
#include "foundation/uni_fileio.h"
#include "foundation/vlm_path_rules.h"
#include "foundation/vlm_time_text.h"

class cmd_params {
public:
    explicit cmd_params(std::uint64_t run_started);
    virtual ~cmd_params();
    cmd_params(cmd_params const&) = delete;
    cmd_params& operator=(cmd_params const&) = delete;

    // Every option field back to its default.
    void reset();
    bool parse_common_options(arg_list& list);
    // "->" + text + line end into the -diags log, flushed; nothing without a log.
    void diag_line(std::string const& text);
    void diag_printf(char const* format, ...) __attribute__((format(printf, 2, 3)));

    std::uint64_t m_run_started = 0;
    std::string m_command_line;
    std::string m_program_name;
    std::string m_tool_version;
    std::string m_results_path;
    std::string m_outdir_path;
    std::string m_user_name;
    std::string m_host_name;
    std::string m_version_label;
    std::map<std::string, std::string> m_path_alias_map;
    std::map<std::string, std::string> m_alias_map;
    std::string m_date_format = "yyyy-mm-dd";
    std::string m_time_format = "hh:mm:ss.xxx";
    vlm::date_time_layout m_date_time_layout{};
    char m_value_substitute_from = '|';
    char m_value_substitute_to = ';';
    std::string m_separator = " | ";
    bool m_no_padding = false;
    bool m_blank_before_time = true;
    bool m_base16 = true;
    bool m_user_name_given = false;
    bool m_host_name_given = false;
    bool m_split_pathfile = false;
    bool m_compress_output = false;
    bool m_gzip_output = false;
    bool m_zlib_output = false;
    bool m_zlibex_output = false;
    std::string m_zlibex_text;
    std::uint32_t m_thread_count = 0;
    bool m_outdir_given = false;
    bool m_results_given = false;
    std::uint32_t m_cpu_instance = 4294967295u;
    std::uint32_t m_cpu_count = 0;
    bool m_separate_files = false;
    std::uint32_t m_fragment_size = 0;
    bool m_fmt_xml = false;
    bool m_fmt_csv = true;
    bool m_fmt_timeline = false;
    bool m_fmt_csvgen = false;
    bool m_fmt_bodyfile = false;
    bool m_fmt_multiline = false;
    bool m_fmt_json = false;
    bool m_fmt_html = false;
    bool m_verbose = false;
    bool m_show_progress = true;
    bool m_pair_datetime = false;
    bool m_header_pending = true;
    bool m_diag_enabled = false;
    std::int32_t m_diag_level = 0;
    std::unique_ptr<std::ostringstream> m_diag_buffer;
    std::unique_ptr<uni::ofstream> m_diag_stream;
    std::string m_diag_path;
    bool m_profile = false;
    std::string m_signal_text;
    std::vector<filter_entry> m_filter_list;
    bool m_pipe_input = false;
    std::string m_enum_dir;
    std::uint32_t m_num_subdirs = 0;
    bool m_enum_dir_given = false;
    std::string m_image_path; // -image: Prefetch files read from a disk image
    bool m_image_given = false;
    bool m_image_shadow_copies = false; // -vss: also every shadow copy of each volume
    bool m_image_deleted = false;       // -deleted: also the deleted entries of each Prefetch folder
    std::string m_carve_path; // -carve: Prefetch files found by signature in any file
    bool m_carve_given = false;
    bool m_unallocated = false; // -unallocated: with -image, the free clusters of each volume too
    std::string m_os_product_version;
    std::uint32_t m_os_version_numbers[3] = {0, 0, 0};
    time_bound m_start_bound;
    time_bound m_stop_bound;
};

// Stores the field separator and picks the substitution pair for values: a
// "|" or "," in the separator is replaced inside values ("|" by ";", "," by a
// blank, or by ";" with `comma_by_semicolon`). "tab", or a backslash and "t",
// names the tab.
void separator_setup(cmd_params& context, std::string const& text, bool comma_by_semicolon);
