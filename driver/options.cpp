// The option pass: one fixed table of general options evaluated top to bottom,
// wrapped by what is particular to Prefetch files. Only the table's order
// decides which of two options wins; the order on the command line does not.
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "driver/cmd_params.h"
#include "driver/kito_user_context.h"
#include "driver/output_entry.h"
#include "foundation/number_text.h"
#include "foundation/uni_fileio.h"
#include "foundation/vlm_path_rules.h"
#include "foundation/vlm_string.h"
#include "foundation/vlm_time.h"
#include "foundation/vlm_time_text.h"
#include "prefetch/evidence_guard.h"

namespace {

std::string lowered(std::string text) { return to_lower_narrow(text); }

bool contains(std::string const& text, char const* part) { return text.find(part) != std::string::npos; }

// Pieces between separators, each trimmed of blanks; empty pieces are dropped.
std::vector<std::string> split_trimmed(std::string const& text, char separator)
{
    std::vector<std::string> pieces;
    std::size_t start = 0;
    while (start <= text.size()) {
        std::size_t end = text.find(separator, start);
        if (end == std::string::npos) end = text.size();
        std::string piece = text.substr(start, end - start);
        if (trim_blanks(piece)) pieces.push_back(piece);
        start = end + 1;
    }
    return pieces;
}

enum class alias_kind { file, path };

// "-alias a|b|c|d": pairs of texts, the first of each pair matched without
// regard to case. Path aliases lose one trailing "/" on both sides and the
// quotes a shell may have left in the replacement.
bool parse_alias_pairs(std::string const& value, alias_kind kind, std::map<std::string, std::string>& map)
{
    if (kind == alias_kind::path && value.empty()) {
        map["*"] = "";
        return true;
    }
    std::vector<std::string> const pieces = split_trimmed(value, '|');
    if (pieces.empty() || pieces.size() % 2 != 0) {
        std::fprintf(stderr, "%s, aborting\n", "imbalanced alias to true pathfiles");
        return false;
    }
    for (std::size_t i = 0; i < pieces.size(); i += 2) {
        std::string from = lowered(expand_path_variables(pieces[i], /*allow_shadow_copy=*/true));
        std::string to = expand_path_variables(pieces[i + 1], /*allow_shadow_copy=*/true);
        if (kind == alias_kind::path) {
            if (!from.empty() && from.back() == '/') from.pop_back();
            if (!to.empty() && to.back() == '/') to.pop_back();
            std::erase(to, '"');
        }
        map[from] = to;
    }
    return true;
}

// Formats the reports can't print would fail silently later; refuse them here.
bool acceptable_date_format(std::string const& format) { return format.size() == 8 || format.size() == 10; }

bool acceptable_time_format(std::string const& format)
{
    return (format.size() == 8 || (format.size() >= 12 && format.size() <= 18)) && contains(format, ":");
}

void take_format(arg_list& list, char const* option, std::string& field, bool (*acceptable)(std::string const&))
{
    std::string value;
    if (!take_value(option, value, list)) return;
    if (acceptable(value)) field = lowered(value);
    else std::fprintf(stderr, "invalid %s, using default format\n", value.c_str());
}

void take_number(arg_list& list, char const* option, std::uint32_t& field)
{
    std::string value;
    if (take_value(option, value, list)) parse_u32_text(value, field);
}

// -filter_sig "4d 5a|0": hexadecimal byte values apart by blanks, then an
// optional offset behind "|" or ","; a "," decides when both appear.
void add_signature_filter(std::string const& value, std::vector<filter_entry>& filters)
{
    std::size_t split = value.find(',');
    if (split == std::string::npos) split = value.find('|');
    std::string const bytes_text = value.substr(0, split);
    filter_entry entry;
    for (std::string const& piece : split_trimmed(bytes_text, ' '))
        entry.signature.push_back(static_cast<std::uint8_t>(std::strtoull(piece.c_str(), nullptr, 16) & 0xff));
    if (entry.signature.empty()) return;
    if (split != std::string::npos) parse_u64_text(value.substr(split + 1), entry.signature_offset);
    filters.push_back(std::move(entry));
}

// A date, and optionally a clock behind the first blank, into one bound. The
// date must name its separator; "/" wins over "-". False only for a date that
// has neither: that fails the whole pass. An unreadable value leaves the
// bound invalid.
bool read_time_bound(std::string const& value, char const* default_clock, time_bound& bound)
{
    bound = {};
    std::size_t const blank = value.find(' ');
    std::string const date = value.substr(0, blank);
    std::string const clock = blank == std::string::npos ? default_clock : value.substr(blank + 1);
    if (date.empty() || (!contains(date, "/") && !contains(date, "-"))) return false;
    char const separator = contains(date, "/") ? '/' : '-';
    vlm::_windows_systemtime fields;
    std::uint64_t ticks = 0;
    if (!vlm::parse_date_time(date.c_str(), clock.c_str(), "YMD", separator, fields)) return true;
    if (!vlm::fields_to_ticks(fields, ticks)) return true;
    vlm::time const moment(ticks, vlm::filetime);
    if (!moment.valid) return true;
    bound.valid = true;
    bound.filetime = ticks;
    bound.unix_seconds = static_cast<std::uint32_t>(moment.unix_seconds);
    return true;
}

// The ordering of the time range: a valid start leaves the top open until a
// stop says otherwise; a stop that is unreadable or lies before the start is
// dropped, so that no upper bound applies.
bool take_time_range(arg_list& list, cmd_params& options)
{
    std::string value;
    if (take_value("-cmd_start_time", value, list)) {
        if (!read_time_bound(value, "", options.m_start_bound)) return false;
        if (options.m_start_bound.valid) {
            options.m_stop_bound = {true, ~std::uint64_t{0}, ~std::uint32_t{0}};
        } else {
            options.m_stop_bound = {};
            std::fputs("invalid start time, ignoring\n", stderr);
        }
    }
    if (take_value("-cmd_stop_time", value, list)) {
        if (!read_time_bound(value, "23:59:59", options.m_stop_bound)) return false;
        time_bound const& start = options.m_start_bound;
        if (!options.m_stop_bound.valid || (start.valid && options.m_stop_bound.filetime < start.filetime)) {
            options.m_stop_bound = {};
            std::fputs("invalid stop time, ignoring\n", stderr);
        }
    }
    return true;
}

void take_filters(arg_list& list, std::vector<filter_entry>& filters)
{
    std::string value;
    while (take_value("-filter", value, list)) {
        std::vector<filter_entry> parsed;
        parse_filter(parsed, value);
        filters.insert(filters.end(), parsed.begin(), parsed.end());
    }
    // A folder context for the filters given so far; it means nothing alone.
    if (!filters.empty() && take_value("-filter_path", value, list)) {
        std::wstring const path = utf8_to_wide(lowered(value));
        for (filter_entry& entry : filters) {
            entry.filter_path = path;
            entry.filter_path_length = static_cast<std::uint32_t>(path.size());
        }
    }
    while (take_value("-filter_sig", value, list)) add_signature_filter(value, filters);
}

// The results file is opened for real by the driver; here it is only proved
// writable, then removed so that a run which fails later leaves nothing
// behind. Only a regular file is removed: /dev/null, a FIFO or a link named by
// -out must survive a tool that may run as root.
bool probe_results_file(arg_list const& list, std::string const& path)
{
    uni::fileio probe;
    bool opened = false;
    // A Prefetch file or a container named by -out is evidence: it is refused
    // as if it could not be opened, and left exactly as it was.
    if (is_evidence_file(path)) {
        std::fprintf(stderr, "prob opening file %s for output, aborting\n", path.c_str());
        return false;
    }
    if (find_option("-append", list, 1)) opened = probe.open(path, /*write=*/true, /*truncate=*/false);
    if (!opened) opened = probe.open(path, /*write=*/true, /*truncate=*/true);
    if (!opened) {
        std::fprintf(stderr, "prob opening file %s for output, aborting\n", path.c_str());
        return false;
    }
    probe.close();
    struct stat facts {};
    if (lstat(path.c_str(), &facts) == 0 && S_ISREG(facts.st_mode)) std::remove(path.c_str());
    return true;
}

bool take_results_path(arg_list& list, cmd_params& options)
{
    std::string value;
    if (!take_value("-out", value, list) && !take_value("-outfile", value, list)) return true;
    options.m_results_path = expand_path_variables(value, /*allow_shadow_copy=*/true);
    replace_char(options.m_results_path, '\\', '/', /*both_cases=*/false);
    options.m_results_given = true;
    return probe_results_file(list, options.m_results_path);
}

void open_diagnostics_log(arg_list& list, cmd_params& options)
{
    if (!take_value("-diags", options.m_diag_path, list)) return;
    // A log named onto evidence is not opened: the run goes on without one.
    if (is_evidence_file(options.m_diag_path)) {
        options.m_diag_path.clear();
        return;
    }
    options.m_diag_stream = std::make_unique<uni::ofstream>(options.m_diag_path, std::ios::out | std::ios::trunc);
    if (!options.m_diag_stream->is_open()) {
        options.m_diag_path.clear();
        options.m_diag_stream.reset();
        return;
    }
    options.m_diag_enabled = true;
    options.diag_line(options.m_command_line);
    if (take_flag("-l2", list)) options.m_diag_level = 2;
    else if (take_flag("-l3", list)) options.m_diag_level = 3;
}

struct format_flags {
    bool xml = false, csv = false, timeline = false, csvgen = false, bodyfile = false, multiline = false;
};

void set_format(cmd_params& options, format_flags const& flags)
{
    options.m_fmt_xml = flags.xml;
    options.m_fmt_csv = flags.csv;
    options.m_fmt_timeline = flags.timeline;
    options.m_fmt_csvgen = flags.csvgen;
    options.m_fmt_bodyfile = flags.bodyfile;
    options.m_fmt_multiline = flags.multiline;
}

// The format words. Each clears the other writers' flags but leaves
// -csvgen's alone, except -csvgen itself, which clears all of them.
void take_format_flags(arg_list& list, cmd_params& options)
{
    if (take_flag("-csv", list)) {
        set_format(options, {.csv = true, .csvgen = options.m_fmt_csvgen});
        separator_setup(options, ",", /*comma_by_semicolon=*/false);
        options.m_no_padding = !options.m_pair_datetime;
    }
    if (take_flag("-csvgen", list)) {
        set_format(options, {.csvgen = true});
        separator_setup(options, ",", /*comma_by_semicolon=*/false);
        options.m_no_padding = true;
    }
    if (take_flag("-csvl2t", list)) {
        set_format(options, {.timeline = true, .csvgen = options.m_fmt_csvgen});
        options.m_header_pending = true;
        separator_setup(options, ",", /*comma_by_semicolon=*/false);
    }
    if (take_flag("-bodyfile", list)) {
        set_format(options, {.csvgen = options.m_fmt_csvgen, .bodyfile = true});
        options.m_header_pending = true;
        separator_setup(options, "|", /*comma_by_semicolon=*/false);
    }
    if (take_flag("-xml", list)) {
        set_format(options, {.xml = true, .csvgen = options.m_fmt_csvgen});
        options.m_header_pending = false;
        separator_setup(options, "", /*comma_by_semicolon=*/false);
    }
    if (take_flag("-multiline", list)) {
        set_format(options, {.csvgen = options.m_fmt_csvgen, .multiline = true});
        options.m_header_pending = true;
        options.m_separator.clear();
        options.m_value_substitute_from = options.m_value_substitute_to = 0;
    }
    if (take_flag("-html", list)) {
        set_format(options, {});
        options.m_fmt_html = true;
    }
    // Last of the format words, so that it wins over any other.
    if (take_flag("-json", list)) {
        set_format(options, {});
        options.m_fmt_html = false;
        options.m_fmt_json = true;
    }
}

// Options this build parses and keeps, though nothing in the tool reads them.
bool take_stored_options(arg_list& list, cmd_params& options)
{
    std::string value;
    if (take_value("-alias", value, list) && !parse_alias_pairs(value, alias_kind::file, options.m_alias_map))
        return false;
    if (take_value("-aliaspath", value, list) && !parse_alias_pairs(value, alias_kind::path, options.m_path_alias_map))
        return false;
    if (take_flag("-gzip", list)) options.m_compress_output = options.m_gzip_output = true;
    if (take_flag("-zlib", list)) options.m_compress_output = options.m_zlib_output = true;
    take_number(list, "-threads", options.m_thread_count);
    if (take_value("-zlibex", options.m_zlibex_text, list)) options.m_compress_output = options.m_zlibex_output = true;
    if (take_value("-sqlite_log", value, list) || take_value("-sqlite", value, list)) {
        std::fputs("This option is not offered in this build\n", stderr);
        return false;
    }
    take_value("-signal", options.m_signal_text, list);
    if (take_value("-hostname", options.m_host_name, list)) options.m_host_name_given = true;
    if (take_flag("-split_pathfile", list)) options.m_split_pathfile = true;
    if (take_value("-username", options.m_user_name, list)) options.m_user_name_given = true;
    take_number(list, "-cpuinst", options.m_cpu_instance);
    take_number(list, "-cpu", options.m_cpu_count);
    if (take_value("-fragment_files", value, list)) {
        parse_u32_text(value, options.m_fragment_size);
        options.m_separate_files = true;
    }
    if (take_flag("-separate_files", list)) options.m_separate_files = true;
    return true;
}

void take_batch_options(arg_list& list, cmd_params& options)
{
    std::string value;
    if (take_value("-outdir", value, list)) {
        options.m_outdir_path = expand_path_variables(value, /*allow_shadow_copy=*/true);
        options.m_outdir_given = true;
    }
    if (take_value("-enumdir", value, list)) {
        options.m_enum_dir = expand_path_variables(value, /*allow_shadow_copy=*/true);
        options.m_enum_dir_given = true;
    }
    if (take_value("-image", value, list)) {
        options.m_image_path = value;
        options.m_image_given = true;
    }
    if (take_flag("-vss", list)) options.m_image_shadow_copies = true;
    if (take_flag("-deleted", list)) options.m_image_deleted = true;
    if (take_value("-carve", value, list)) {
        options.m_carve_path = expand_path_variables(value, /*allow_shadow_copy=*/true);
        options.m_carve_given = true;
    }
    if (take_flag("-unallocated", list)) options.m_unallocated = true;
    take_number(list, "-num_subdirs", options.m_num_subdirs);
    if (take_flag("-profile", list)) options.m_profile = true;
    if (take_flag("-pipe", list)) options.m_pipe_input = true;
    take_filters(list, options.m_filter_list);
}

void take_layout_options(arg_list& list, cmd_params& options)
{
    std::string value;
    if (take_flag("-base10", list)) options.m_base16 = false;
    if (take_flag("-base16", list)) options.m_base16 = true;
    if (take_value("-csv_separator", value, list)) separator_setup(options, value, false);
    if (take_flag("-no_whitespace", list)) {
        options.m_no_padding = true;
        options.m_blank_before_time = false;
        std::erase(options.m_separator, ' ');
    }
    take_format(list, "-dateformat", options.m_date_format, acceptable_date_format);
    take_format(list, "-timeformat", options.m_time_format, acceptable_time_format);
    if (take_flag("-verbose", list) || take_flag("-v", list)) options.m_verbose = true;
    if (take_flag("-quiet", list)) options.m_show_progress = false;
}

// The option reader is shared with builds for macOS, where this file holds
// the system version; on Linux it is absent and the fields stay empty.
void read_product_version(cmd_params& options)
{
    std::vector<std::uint8_t> bytes;
    if (!read_whole_file(bytes, "/System/Library/CoreServices/SystemVersion.plist", 0xffffffffu)) return;
    std::string const plist(bytes.begin(), bytes.end());
    std::size_t const key = plist.find(">ProductVersion<");
    std::size_t const open = key == std::string::npos ? key : plist.find("<string>", key);
    if (open == std::string::npos) return;
    std::size_t const start = open + std::strlen("<string>");
    std::size_t const close = plist.find("</s", start);
    if (close == std::string::npos) return;
    options.m_os_product_version = plist.substr(start, close - start);
    std::vector<std::string> const parts = split_trimmed(options.m_os_product_version, '.');
    for (std::size_t i = 0; i < parts.size() && i < 3; ++i) parse_u32_text(parts[i], options.m_os_version_numbers[i]);
}

} // namespace

void separator_setup(cmd_params& context, std::string const& text, bool comma_by_semicolon)
{
    context.m_separator = text;
    std::string const folded = lowered(text);
    if (contains(folded, "|")) {
        context.m_value_substitute_from = '|';
        context.m_value_substitute_to = ';';
    } else if (contains(folded, ",")) {
        context.m_value_substitute_from = ',';
        context.m_value_substitute_to = comma_by_semicolon ? ';' : ' ';
    } else {
        context.m_value_substitute_from = context.m_value_substitute_to = 0;
        if (folded == "tab" || folded == "\\t") context.m_separator = "\t";
    }
}

bool cmd_params::parse_common_options(arg_list& list)
{
    if (list.empty()) return false;
    if (m_command_line.empty()) join_arguments(m_command_line, list, '"');
    if (m_program_name.empty()) {
        m_program_name = list[0].substr(list[0].rfind('/') + 1);
        std::size_t const dot = m_program_name.rfind('.');
        if (dot != std::string::npos) m_program_name.erase(dot);
    }

    if (take_flag("-pair_datetime", list)) m_pair_datetime = true; // -csv reads it
    open_diagnostics_log(list, *this);
    take_format_flags(list, *this);
    if (!take_stored_options(list, *this)) return false;
    if (!take_results_path(list, *this)) return false;
    take_batch_options(list, *this);
    if (!take_time_range(list, *this)) return false;
    take_layout_options(list, *this);

    vlm::build_date_time_layout(m_date_time_layout, m_date_format, m_time_format, m_pair_datetime);
    read_product_version(*this);
    return true;
}

bool parse_tool_options(kito_user_context& context, arg_list& list, std::string const& version)
{
    context.reset();
    context.m_file_path.clear();
    context.m_file_base_name.clear();
    context.m_show_prev_runs = context.m_show_prefetch_path = context.m_show_target_path = false;
    context.m_decompress_only = context.m_scan_volume = false;
    context.m_decompress_target.clear();
    context.m_volume_root.clear();
    reset_decoded_entry(context);

    // Without a table format the text report is wanted, which the driver asks
    // for with "-longform". A batch over both sources with no -verbose is the
    // exception, and keeps the default table.
    bool const table_format = find_option("-csv", list, 1) || find_option("-csvl2t", list, 1) ||
                              find_option("-bodyfile", list, 1) || find_option("-json", list, 1) ||
                              find_option("-html", list, 1);
    bool const quiet_batch = find_option("-pipe", list, 1) && find_option("-enumdir", list, 1) &&
                             !find_option("-verbose", list, 1) && !find_option("-v", list, 1);
    if (!table_format && !quiet_batch && !find_option("-longform", list, 1)) list.push_back("-longform");

    if (!context.parse_common_options(list)) return false;
    context.m_version_label = "PREFETCH";
    context.m_tool_version = version;
    context.m_show_prev_runs = context.m_show_target_path = true;

    std::string target;
    if (take_value("-decompress_to", target, list)) {
        context.m_decompress_only = true;
        context.m_decompress_target = expand_path_variables(target, /*allow_shadow_copy=*/true);
    }
    if (take_flag("-kito_path", list)) context.m_show_prefetch_path = true;
    // After the common pass, so the text report beats any table format given with it.
    if (take_flag("-longform", list)) {
        context.m_fmt_xml = context.m_fmt_csv = context.m_fmt_timeline = context.m_fmt_bodyfile = false;
        context.m_fmt_json = context.m_fmt_html = false;
        context.m_value_substitute_from = context.m_value_substitute_to = 0;
        context.m_verbose = context.m_show_prev_runs = true;
    }
    return true;
}
