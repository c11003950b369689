#include "reports/csv_report.h"

#include "reports/field_output.h"

namespace {

// Roles of the values, stored with the cells; no writer reads them.
constexpr std::uint32_t role_count = 4;
constexpr std::uint32_t role_last_run = 2;
constexpr std::uint32_t role_modified = 1;
constexpr std::uint32_t role_accessed = 0;
constexpr std::uint32_t role_changed = 8;

// The name column is as wide as the first file's folder part plus 43, or 42
// without -kito_path; the first file of a run fixes it for all.
std::uint64_t name_width(report_subject const& file, report_settings const& settings)
{
    if (!settings.show_prefetch_path) return 42;
    std::string const& path = file.file_path;
    std::size_t cut = path.rfind('\\');
    if (cut == std::string::npos) cut = path.rfind('/');
    return cut == std::string::npos ? 42 : cut + 43;
}

void build_columns(std::vector<field_cell>& columns, report_subject const& file, report_settings const& settings)
{
    std::uint64_t const date_width = settings.date_format.size();
    std::uint64_t const time_width = settings.time_format.size();
    std::uint64_t const pair_width = date_width + time_width + 1;
    columns.clear();
    auto add = [&columns](std::string const& name, std::uint64_t width) {
        define_column(columns.emplace_back(), name, width);
    };
    auto add_time = [&](char const* paired_name, char const* date_name) {
        if (settings.pair_datetime) {
            add(paired_name, pair_width);
            return;
        }
        add(date_name, date_width);
        define_column_typed(columns.emplace_back(), "time-UTC", time_width, cell_time_half, 0);
    };

    add("prefetch file name", name_width(file, settings));
    add("app name", 30);
    add("times ran", 9);
    add_time("last run [UTC]", "last run");
    add_time("modify date [UTC]", "mdate");
    add_time("access date [UTC]", "adate");
    add_time("changed date [UTC]", "cdate");
    add("path/appname", 90);
    if (verbose_columns(settings)) {
        add("Num Vols", 3);
        add("volume(s)", 6);
        add("volume serial(s)", 9);
        add("volume date/time(s) (UTC)", pair_width);
        add("Num modules", 3);
        add("Module list", 10);
    }
    if (settings.show_prev_runs) add("previous dates run", pair_width);
    if (!settings.user_name.empty()) add("user acct", 9);
    if (!settings.host_name.empty()) add("host name", 9);
    if (settings.no_padding)
        for (auto& column : columns) column.cell_width = 0;
}

template <typename Items, typename Render>
std::string joined(Items const& items, Render render)
{
    std::vector<std::string> texts;
    for (auto const& item : items) texts.push_back(render(item));
    return join_texts(texts);
}

void fill_row(field_row& row, report_subject const& file, report_settings const& settings)
{
    prefetch_entry const& entry = file.entry;
    std::string const& date_format = settings.date_format;
    std::string const& time_format = settings.time_format;
    auto when = [&](std::uint64_t filetime) { return filetime_text(filetime, date_format, time_format); };
    std::uint16_t const time_kind = settings.pair_datetime ? cell_time_joined : cell_time_pair;
    std::uint32_t const number_flags = cell_flag_decimal | role_count;
    int i = 0;

    i += set_text_cell(row, i, settings.show_prefetch_path ? file.file_path : file.file_base_name, cell_text, 0);
    i += set_text_cell(row, i, entry.target_name, cell_text, 0);
    i += set_value_cell(row, i, entry.run_count, cell_number, number_flags);
    i += set_value_cell(row, i, entry.last_run, time_kind, role_last_run);
    i += set_value_cell(row, i, entry.input_modified, time_kind, role_modified);
    i += set_value_cell(row, i, entry.input_accessed, time_kind, role_accessed);
    i += set_value_cell(row, i, entry.input_stats_changed, time_kind, role_changed);
    i += set_text_cell(row, i, entry.target_path, cell_text, 0);
    if (verbose_columns(settings)) {
        i += set_value_cell(row, i, entry.volume_paths.size(), cell_number, cell_flag_decimal);
        i += set_text_cell(row, i, join_texts(entry.volume_paths), cell_text, 0);
        i += set_text_cell(row, i, joined(entry.volume_serials, volume_serial_text), cell_text, 0);
        i += set_text_cell(row, i, joined(entry.volume_times, when), cell_text, 0);
        i += set_value_cell(row, i, entry.file_strings.size(), cell_number, cell_flag_decimal);
        i += set_text_cell(row, i, join_texts(entry.file_strings), cell_text, 0);
    }
    if (settings.show_prev_runs) {
        std::vector<std::uint64_t> const latest_first(entry.prev_run_times.rbegin(), entry.prev_run_times.rend());
        i += set_text_cell(row, i, joined(latest_first, when), cell_text, 0);
    }
    if (!settings.user_name.empty()) i += set_text_cell(row, i, settings.user_name, cell_text, 0);
    if (!settings.host_name.empty()) set_text_cell(row, i, settings.host_name, cell_text, 0);
}

} // namespace

bool verbose_columns(report_settings const& settings)
{
    // The volume and module columns only fit the compact forms; the padded
    // -csv -pair_datetime form leaves them out on purpose.
    return settings.verbose && settings.no_padding;
}

bool write_csv_report(std::ostream& out, report_subject const& file, report_settings const& settings,
                      report_state& state)
{
    if (state.header_pending || state.column_list.empty()) build_columns(state.column_list, file, settings);
    if (state.header_pending) write_header_row(out, settings, state);
    field_row row;
    set_row_size(row, static_cast<std::int32_t>(state.column_list.size()), /*clear=*/false);
    fill_row(row, file, settings);
    write_field_row(out, row, settings, state);
    return true;
}
