#include "driver/cmd_params.h"

#include <cstdarg>
#include <cstdio>

#include "driver/kito_user_context.h"
#include "driver/output_entry.h"

cmd_params::cmd_params(std::uint64_t run_started) : m_run_started(run_started)
{
    reset();
    m_diag_buffer = std::make_unique<std::ostringstream>();
}

cmd_params::~cmd_params()
{
    if (m_diag_enabled && m_diag_stream) m_diag_stream->close();
}

void cmd_params::reset()
{
    m_command_line.clear();
    m_program_name.clear();
    m_tool_version.clear();
    m_results_path.clear();
    m_outdir_path.clear();
    m_user_name.clear();
    m_host_name.clear();
    m_version_label.clear();
    m_path_alias_map.clear();
    m_alias_map.clear();
    m_date_format = "yyyy-mm-dd";
    m_time_format = "hh:mm:ss.xxx";
    m_date_time_layout = {};
    m_value_substitute_from = '|';
    m_value_substitute_to = ';';
    m_separator = " | ";
    m_no_padding = false;
    m_blank_before_time = true;
    m_base16 = true;
    m_user_name_given = m_host_name_given = m_split_pathfile = false;
    m_compress_output = m_gzip_output = m_zlib_output = m_zlibex_output = false;
    m_zlibex_text.clear();
    m_thread_count = 0;
    m_outdir_given = m_results_given = false;
    m_cpu_instance = 4294967295u;
    m_cpu_count = 0;
    m_separate_files = false;
    m_fragment_size = 0;
    m_fmt_xml = m_fmt_timeline = m_fmt_csvgen = m_fmt_bodyfile = m_fmt_multiline = m_fmt_json = m_fmt_html = false;
    m_fmt_csv = true;
    m_verbose = false;
    m_show_progress = true;
    m_pair_datetime = false;
    m_header_pending = true;
    m_diag_enabled = false;
    m_diag_level = 0;
    m_diag_stream.reset();
    m_diag_path.clear();
    m_profile = false;
    m_signal_text.clear();
    m_filter_list.clear();
    m_pipe_input = false;
    m_enum_dir.clear();
    m_num_subdirs = 0;
    m_enum_dir_given = false;
    m_image_path.clear();
    m_image_given = false;
    m_image_shadow_copies = false;
    m_image_deleted = false;
    m_carve_path.clear();
    m_carve_given = false;
    m_unallocated = false;
    m_os_product_version.clear();
    m_os_version_numbers[0] = m_os_version_numbers[1] = m_os_version_numbers[2] = 0;
    m_start_bound = {};
    m_stop_bound = {};
}

void cmd_params::diag_line(std::string const& text)
{
    if (!m_diag_enabled || !m_diag_stream) return;
    *m_diag_stream << "->" << text << '\n';
    m_diag_stream->flush();
}

void cmd_params::diag_printf(char const* format, ...)
{
    if (!m_diag_enabled || !m_diag_stream || format == nullptr) return;
    // Room for the format and 256 bytes of arguments; a longer text is cut.
    std::vector<char> text(std::char_traits<char>::length(format) + 256);
    va_list args;
    va_start(args, format);
    std::vsnprintf(text.data(), text.size(), format, args);
    va_end(args);
    diag_line(text.data());
}

kito_user_context::kito_user_context() : cmd_params(vlm::time_now().filetime_ticks) { reset_decoded_entry(*this); }
