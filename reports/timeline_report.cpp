#include "reports/timeline_report.h"

#include <map>
#include <sstream>

#include "foundation/vlm_string.h"

namespace {

std::string last_path_part(std::string_view path)
{
    std::size_t const cut = path.rfind('\\');
    return std::string(cut == std::string_view::npos ? path : path.substr(cut + 1));
}

// With -verbose the modules stand with their whole paths, in map order.
// Otherwise by file name only, once per name whatever its case (the first
// spelling met wins), sorted by the lower-cased name.
std::string module_list(offset_string_map const& strings, bool verbose)
{
    if (strings.empty()) return {};
    if (verbose) return "Module list: " + join_texts(strings);
    std::map<std::string, std::string> by_key;
    for (auto const& [offset, path] : strings) {
        std::string name = last_path_part(path);
        std::string key = name;
        by_key.emplace(to_lower_narrow(key), std::move(name));
    }
    std::vector<std::string> names;
    for (auto const& [key, name] : by_key) names.push_back(name);
    return "Module list: " + join_texts(names);
}

std::string run_notes(prefetch_entry const& entry, report_settings const& settings)
{
    std::string notes = "Run count: " + std::to_string(entry.run_count);
    if (entry.prev_run_times.empty()) return notes;
    std::vector<std::string> times;
    for (auto it = entry.prev_run_times.rbegin(); it != entry.prev_run_times.rend(); ++it)
        times.push_back(filetime_text(*it, settings.date_format, settings.time_format));
    // The plural follows the run count, not the number of times listed.
    notes += entry.run_count > 2 ? " [Previous times run: " : " [Previous time run: ";
    return notes + join_texts(times) + "]";
}

std::string volume_list(prefetch_entry const& entry, report_settings const& settings)
{
    if (entry.volume_paths.empty()) return {};
    std::vector<std::string> groups;
    for (std::size_t i = 0; i < entry.volume_paths.size(); ++i) {
        std::uint32_t const serial = i < entry.volume_serials.size() ? entry.volume_serials[i] : 0;
        std::uint64_t const created = i < entry.volume_times.size() ? entry.volume_times[i] : 0;
        groups.push_back("[" + entry.volume_paths[i] + "; " + volume_serial_text(serial) + "; " +
                         filetime_text(created, settings.date_format, settings.time_format) + "]");
    }
    return "Volume name; serial#; date: " + join_texts(groups);
}

timeline_record build_record(report_subject const& file, report_settings const& settings)
{
    prefetch_entry const& entry = file.entry;
    timeline_record record;
    record.times.m = entry.input_modified;
    record.times.a = entry.input_accessed;
    record.times.c = entry.last_run;
    record.times.b = created_time(entry);
    record.times.m_label = "Last Modified";
    record.times.a_label = "Last Access";
    record.times.c_label = "Last Run";
    record.times.b_label = "Created";
    record.source = "PREFETCH";
    record.sourcetype = file.version_label;
    record.user = settings.user_name;
    record.host = settings.host_name;
    record.filename = file.file_path;
    record.format = last_path_part(settings.program_name) + " (velmora)";
    record.short_text = file.file_base_name + " [" + entry.target_name + " executed]";
    record.desc = module_list(entry.file_strings, settings.verbose);
    record.notes = run_notes(entry, settings);
    record.extra = volume_list(entry, settings);
    record.date_format = settings.date_format;
    record.time_format = settings.time_format;
    record.layout = settings.date_time_layout;
    record.separator = settings.separator;
    record.substitute_from = settings.value_substitute_from;
    record.substitute_to = settings.value_substitute_to;
    record.no_padding = settings.no_padding;
    record.paired = settings.pair_datetime;
    return record;
}

// A previous run shares everything with the file's record but its times:
// the one instant stands as modified, accessed and run at once.
timeline_record previous_run_record(timeline_record record, std::uint64_t when, std::string const& last_run_text)
{
    record.times.m = record.times.a = record.times.c = when;
    record.times.b = 0;
    record.times.m_label = "Modified";
    record.times.a_label = "Access";
    record.times.c_label = "Run";
    record.times.b_label = "Created";
    record.desc = "Modules for last run are at record w/ same name at time: " + last_run_text;
    record.extra.clear();
    record.notes = "Not last time run, but a previous time run.";
    return record;
}

void make_safe(timeline_record& record)
{
    if (record.substitute_from != 0 && record.substitute_to != 0) {
        for (std::string* text : {&record.short_text, &record.desc, &record.filename, &record.notes, &record.extra})
            substitute_char(*text, record.substitute_from, record.substitute_to, /*ignore_case=*/false);
    }
    for (std::string* text : {&record.desc, &record.notes, &record.extra}) mark_newlines(*text);
}

std::string when_fields(timeline_record const& record, vlm::time const& when)
{
    std::string date;
    std::string clock;
    vlm::format_time_layout(date, clock, when, record.layout);
    std::string const blank = record.no_padding ? "" : " ";
    if (record.paired) return blank + date + " " + clock;
    return date + record.separator + blank + clock;
}

} // namespace

void write_timeline_header(std::ostream& out, std::string const& separator, bool paired)
{
    static char const* const names[] = {"timezone", "MACB",  "source", "sourcetype", "type",
                                        "user",     "host",  "short",  "desc",       "version",
                                        "filename", "inode", "notes",  "format",     "extra"};
    std::string line = paired ? "date/time" : "date" + separator + "time";
    for (char const* name : names) line += separator + name;
    out.write(line.data(), static_cast<std::streamsize>(line.size()));
}

bool write_timeline_record(bool& header_pending, std::ostream& out, timeline_record& record)
{
    if (header_pending) {
        write_timeline_header(out, record.separator, record.paired);
        out << '\n';
        header_pending = false;
    }
    time_map rows;
    group_macb_times(rows, record.times);
    std::string const& sep = record.separator;
    for (auto const& [raw, row] : rows) {
        // Each row makes the record's own texts safe again, so a row sees what
        // the one before it left: a lone CR beside an LF stays on the first
        // row and is marked on the next, once the LF has become "[LF]".
        make_safe(record);
        std::string const& type = record.type_override.empty() ? row.type_text : record.type_override;
        std::string const line = when_fields(record, row.when) + sep + record.timezone + sep + row.macb_text + sep +
                                 record.source + sep + record.sourcetype + sep + type + sep + record.user + sep +
                                 record.host + sep + record.short_text + sep + record.desc + sep +
                                 std::to_string(record.version) + sep + record.filename + sep + record.inode + sep +
                                 record.notes + sep + record.format + sep + record.extra + "\n";
        out.write(line.data(), static_cast<std::streamsize>(line.size()));
    }
    return true;
}

bool write_timeline_report(std::ostream& out, report_subject const& file, report_settings const& settings,
                           report_state& state)
{
    // The previous-run rows copy the record as the file's own rows left it.
    timeline_record record = build_record(file, settings);
    write_timeline_record(state.header_pending, out, record);
    std::set<std::uint64_t> const& previous = file.entry.prev_run_times;
    if (previous.empty()) return true;
    std::string const last_run_text = filetime_text(file.entry.last_run, settings.date_format, settings.time_format);
    for (auto it = previous.rbegin(); it != previous.rend(); ++it) {
        timeline_record copy = previous_run_record(record, *it, last_run_text);
        write_timeline_record(state.header_pending, out, copy);
    }
    return true;
}
