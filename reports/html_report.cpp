#include "reports/html_report.h"

#include <algorithm>
#include <cstdio>
#include <set>

#include "reports/field_output.h"
#include "reports/html_assets.h"

namespace {

void put(std::ostream& out, std::string_view text)
{
    out.write(text.data(), static_cast<std::streamsize>(text.size()));
}

// Code points a page cannot show as themselves: controls (a line end in a
// name would read as a blank, a carriage return is lost by the parser),
// surrogates, noncharacters, and the direction marks and overrides that make
// "evil\u202Etxt.exe" read as "evilexe.txt".
bool shown_escaped(std::uint32_t c)
{
    return c < 0x20 || (c >= 0x7f && c < 0xa0) || (c >= 0xd800 && c <= 0xdfff) || (c >= 0xfdd0 && c <= 0xfdef) ||
           (c & 0xfffe) == 0xfffe || c == 0x200e || c == 0x200f || (c >= 0x202a && c <= 0x202e) ||
           (c >= 0x2066 && c <= 0x2069);
}

// Walks `text` as the page shows it: each character that stands as itself to
// `plain` (with its code point), each visible escape ("\xFF", "\u202E") to `escape`.
template <typename plain_fn, typename escape_fn>
void walk_shown(std::string_view text, plain_fn&& plain, escape_fn&& escape)
{
    char code[16];
    while (!text.empty()) {
        std::uint32_t c = 0;
        std::size_t const length = utf8_sequence(text, c);
        if (length == 0) std::snprintf(code, sizeof code, "\\x%02X", static_cast<std::uint8_t>(text[0]));
        else if (shown_escaped(c)) std::snprintf(code, sizeof code, "\\u%04X", c);
        if (length == 0 || shown_escaped(c)) escape(std::string_view(code));
        else plain(c, text.substr(0, length));
        text.remove_prefix(length == 0 ? 1 : length);
    }
}

std::string html_escaped(std::string_view text, bool marked)
{
    if (text.empty() && marked) return "<em class=\"none\">(empty)</em>";
    std::string out;
    out.reserve(text.size() + 16);
    walk_shown(
        text,
        [&out](std::uint32_t c, std::string_view piece) {
            if (c == '&') out += "&amp;";
            else if (c == '<') out += "&lt;";
            else if (c == '>') out += "&gt;";
            else if (c == '"') out += "&quot;";
            else if (c == '\'') out += "&#39;";
            else out += piece;
        },
        [&out, marked](std::string_view escape) {
            if (marked) out.append("<mark class=\"esc\">").append(escape).append("</mark>");
            else out += escape;
        });
    return out;
}

// A time for the table: the second in the cell, the full value in its
// datetime, which the script sorts and draws by and shows when pointed at.
std::string time_element(std::uint64_t filetime)
{
    std::string const iso = iso_time(filetime);
    if (iso.empty()) return {};
    std::string shown = iso.substr(0, 19);
    shown[10] = ' ';
    return "<time datetime=\"" + iso + "\">" + shown + "</time>";
}

// Previous runs, latest first, as the other forms list them.
template <typename each>
void for_previous_runs(prefetch_entry const& e, each&& visit)
{
    for (auto t = e.prev_run_times.rbegin(); t != e.prev_run_times.rend(); ++t)
        if (!iso_time(*t).empty()) visit(*t);
}

// The table's columns, in order: heading, how the script sorts it, and the
// cell. A column added here is added to the page.
// A row of the table: the file, its number on the page and its findings.
struct html_row {
    report_subject const& file;
    std::uint64_t number;
    std::vector<finding> const& findings;
};

struct html_column {
    char const* heading;
    char const* sort; // "text", "number" or "time"
    void (*cell)(std::ostream& out, html_row const& row);
};

// " with /prefetch:N" after "matches", for a hash that needed the switch.
std::string prefetch_flag_text(std::uint32_t flag)
{
    return flag == 0 ? std::string() : " with /prefetch:" + std::to_string(flag);
}

void cell_time(std::ostream& out, std::uint64_t filetime)
{
    std::string const iso = iso_time(filetime);
    put(out, iso.empty() ? "<td>" : "<td data-sort=\"" + iso + "\">");
    put(out, time_element(filetime));
}

html_column const columns[] = {
    {"Executable", "text",
     [](std::ostream& out, html_row const& r) {
         put(out, "<td><a class=\"open\" href=\"#f" + std::to_string(r.number) + "\">");
         put(out, html_text(r.file.entry.target_name));
         put(out, "</a>");
     }},
    {"Hash", "text",
     [](std::ostream& out, html_row const& r) {
         put(out, "<td class=\"mono\">" + hash_text(r.file.entry.prefetch_hash));
     }},
    {"Path hash", "text",
     [](std::ostream& out, html_row const& r) {
         prefetch_entry const& e = r.file.entry;
         if (e.path_hash == path_hash_check::matched)
             put(out, "<td class=\"path\"><span class=\"ok\">matches" + prefetch_flag_text(e.hash_prefetch_flag) +
                          "</span> " + html_text(e.hash_path));
         else if (e.hash_hosting_program) put(out, "<td><span class=\"hosting\">hosting program</span>");
         else put(out, e.path_hash == path_hash_check::not_matched ? "<td><span class=\"warn\">no path</span>" : "<td>");
     }},
    {"Findings", "text",
     [](std::ostream& out, html_row const& r) {
         put(out, "<td>");
         for (finding const which : r.findings) put(out, std::string("<span class=\"warn\">") + finding_code(which) + "</span> ");
     }},
    {"Runs", "number",
     [](std::ostream& out, html_row const& r) {
         put(out, "<td class=\"num\">" + std::to_string(r.file.entry.run_count));
     }},
    {"Last run (UTC)", "time",
     [](std::ostream& out, html_row const& r) { cell_time(out, r.file.entry.last_run); }},
    {"Previous runs", "time",
     [](std::ostream& out, html_row const& r) {
         std::string times;
         for_previous_runs(r.file.entry,
                           [&times](std::uint64_t t) { times += (times.empty() ? "" : "<br>") + time_element(t); });
         auto const first = r.file.entry.prev_run_times.rbegin();
         std::string const key = first == r.file.entry.prev_run_times.rend() ? std::string() : iso_time(*first);
         put(out, (key.empty() ? "<td>" : "<td data-sort=\"" + key + "\">") + times);
     }},
    {"Executable path", "text",
     [](std::ostream& out, html_row const& r) {
         put(out, "<td class=\"path\">" + html_text(r.file.entry.target_path));
     }},
    {"Format", "text",
     [](std::ostream& out, html_row const& r) {
         std::string const container = container_names(r.file.entry.container_kinds);
         put(out, "<td>" + html_text(r.file.version_label) + " (" + std::to_string(r.file.entry.format_version) + ")" +
                      (container.empty() ? "" : "<br>in " + container));
     }},
    {"Prefetch file", "text",
     [](std::ostream& out, html_row const& r) {
         put(out, "<td class=\"path\">" + html_text(r.file.file_path));
     }},
    {"File modified, accessed, changed", "time",
     [](std::ostream& out, html_row const& r) {
         cell_time(out, r.file.entry.input_modified);
         put(out, "<br>" + time_element(r.file.entry.input_accessed) + "<br>" + time_element(r.file.entry.input_stats_changed));
     }},
};

// The times the timeline draws, as data of the row: ISO texts, blank-separated.
void put_timeline_data(std::ostream& out, prefetch_entry const& e)
{
    std::string runs;
    for_previous_runs(e, [&runs](std::uint64_t t) { runs += (runs.empty() ? "" : " ") + iso_time(t); });
    put(out, " data-last=\"" + iso_time(e.last_run) + "\" data-runs=\"" + runs + "\" data-modified=\"" +
                 iso_time(e.input_modified) + "\"");
}

// A string of the details as a JSON string for an attribute in single quotes:
// as the page shows it, each visible escape between two U+0001 marks (a
// control, so never plain text), and the characters that an attribute or
// markup would take ("'", "&", "<") as JSON escapes.
void put_json_shown(std::ostream& out, std::string_view text)
{
    std::string json = "\"";
    walk_shown(
        text,
        [&json](std::uint32_t c, std::string_view piece) {
            if (c == '"' || c == '\\') json.append(1, '\\').append(piece);
            else if (c == '\'' || c == '&' || c == '<') {
                char code[8];
                std::snprintf(code, sizeof code, "\\u%04x", c);
                json += code;
            } else json += piece;
        },
        [&json](std::string_view escape) { json.append("\\u0001\\").append(escape).append("\\u0001"); });
    put(out, json + "\"");
}

// An entry of a file's details: a loaded file with its NTFS file reference,
// if it has one, a volume's device path or one of its directories.
struct detail_item {
    std::string_view text;
    ntfs_file_reference const* reference = nullptr;

    // Its key in the page's table: the text and the reference, if any, told
    // apart by the first character.
    std::string key() const
    {
        if (reference == nullptr) return std::string("n").append(text);
        return "r" + std::to_string(reference->mft_entry) + "-" + std::to_string(reference->mft_sequence) + ":" +
               std::string(text);
    }
};

// The item itself: its string, or its string with the reference's MFT entry and sequence.
void put_item(std::ostream& out, detail_item const& item)
{
    if (item.reference != nullptr) put(out, "[");
    put_json_shown(out, item.text);
    if (item.reference != nullptr)
        put(out,
            "," + std::to_string(item.reference->mft_entry) + "," + std::to_string(item.reference->mft_sequence) + "]");
}

detail_item loaded_file(prefetch_entry const& e, std::uint64_t offset, std::string_view name)
{
    auto const found = e.file_references.find(offset);
    return {name, found == e.file_references.end() ? nullptr : &found->second};
}

// The items of a file's details in the order the page's script reads them.
template <typename each>
void for_detail_items(prefetch_entry const& e, each&& visit)
{
    for (auto const& [offset, name] : e.file_strings) visit(loaded_file(e, offset, name));
    for (std::size_t i = 0; i < e.volume_paths.size(); ++i) {
        visit(detail_item{e.volume_paths[i]});
        if (i < e.volume_dirs.size())
            for (auto const& [offset, directory] : e.volume_dirs[i]) visit(detail_item{directory});
    }
}

// The other places of an image that hold the file's bytes, as a member of
// the details; nothing when there are none.
void put_json_list(std::ostream& out, std::string_view key, std::vector<std::string> const& names)
{
    if (names.empty()) return;
    put(out, ",\"" + std::string(key) + "\":[");
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (i > 0) put(out, ",");
        put_json_shown(out, names[i]);
    }
    put(out, "]");
}

// A list of items as JSON: each the number of its item in the page's table,
// where it has one, else the item itself. Numbers that follow on each other
// are a run, written as the first and minus the count of the rest: 7,-3 is
// 7, 8, 9 and 10 (the files of a program seen before load in the same order).
class detail_list {
public:
    detail_list(std::ostream& out, html_string_table const& table) : m_out(out), m_table(table) { put(out, "["); }
    void add(detail_item const& item)
    {
        auto const found = m_table.numbers.find(item.key());
        if (found != m_table.numbers.end() && m_last >= 0 && found->second == m_last + 1) {
            ++m_last;
            ++m_run;
            return;
        }
        end_run();
        put(m_out, m_empty ? "" : ",");
        m_empty = false;
        if (found == m_table.numbers.end()) put_item(m_out, item);
        else put(m_out, std::to_string(found->second));
        m_last = found == m_table.numbers.end() ? -1 : std::int64_t{found->second};
    }
    void end()
    {
        end_run();
        put(m_out, "]");
    }

private:
    void end_run()
    {
        if (m_run > 0) put(m_out, ",-" + std::to_string(m_run));
        m_run = 0;
    }
    std::ostream& m_out;
    html_string_table const& m_table;
    std::int64_t m_last = -1;
    std::uint64_t m_run = 0;
    bool m_empty = true;
};

// A file's details as data in an attribute of its row, from which the script
// builds them when the file is opened: a browser then lays out ten thousand rows, not millions of
// names. The items this file adds to the page's table come first ("new");
// each place of an item in the table is then its number. Each string goes to
// the stream on its own: a hostile file's millions of names never stand in
// memory as one text.
void put_details_data(std::ostream& out, prefetch_entry const& e, html_string_table& table)
{
    put(out, " data-details='{\"new\":[");
    char const* comma = "";
    for_detail_items(e, [&](detail_item const& item) {
        if (!table.add(item.key())) return;
        put(out, comma);
        put_item(out, item);
        comma = ",";
    });
    put(out, "],\"sha256\":\"" + e.input_sha256 + "\"");
    put_json_list(out, "same", e.same_bytes_at);
    put(out, ",\"files\":");
    detail_list files(out, table);
    for (auto const& [offset, name] : e.file_strings) files.add(loaded_file(e, offset, name));
    files.end();
    put(out, ",\"volumes\":[");
    for (std::size_t i = 0; i < e.volume_paths.size(); ++i) {
        std::uint64_t const created = i < e.volume_times.size() ? e.volume_times[i] : 0;
        std::uint32_t const serial = i < e.volume_serials.size() ? e.volume_serials[i] : 0;
        put(out, i == 0 ? "[" : ",[");
        detail_list path(out, table);
        path.add(detail_item{e.volume_paths[i]});
        path.end();
        put(out, ",\"" + volume_serial_text(serial) + "\",\"" + iso_time(created) + "\",");
        detail_list directories(out, table);
        if (i < e.volume_dirs.size())
            for (auto const& [offset, directory] : e.volume_dirs[i]) directories.add(detail_item{directory});
        directories.end();
        put(out, "]");
    }
    put(out, "]}'");
}

void put_file_rows(std::ostream& out, html_row const& row, html_string_table& table)
{
    put(out, "<tr class=\"file\" id=\"f" + std::to_string(row.number) + "\"");
    put_timeline_data(out, row.file.entry);
    put_details_data(out, row.file.entry, table);
    put(out, ">");
    for (html_column const& column : columns) {
        column.cell(out, row);
        put(out, "</td>");
    }
    put(out, "</tr>\n");
}

// ISO texts, blank-separated, latest first.
std::string iso_list(std::set<std::uint64_t> const& times)
{
    std::string text;
    for (auto t = times.rbegin(); t != times.rend(); ++t)
        if (!iso_time(*t).empty()) text += (text.empty() ? "" : " ") + iso_time(*t);
    return text;
}

// A history row fills the columns that have a meaning for a program across
// its versions, found by heading; the others stay empty.
struct history_cell {
    char const* heading;
    std::string (*cell)(program_history const& program, std::string const& id);
};

history_cell const history_cells[] = {
    {"Executable",
     [](program_history const& p, std::string const& id) {
         return "<td><a class=\"open\" href=\"#f" + id + "\">" + html_text(p.executable) + "</a> (history)";
     }},
    {"Hash",
     [](program_history const& p, std::string const&) { return "<td class=\"mono\">" + hash_text(p.prefetch_hash); }},
    {"Runs", [](program_history const& p,
                std::string const&) { return "<td class=\"num\">" + std::to_string(p.all_runs().size()); }},
    {"Last run (UTC)",
     [](program_history const& p, std::string const&) {
         std::string const iso = iso_time(p.versions.front().last_run);
         return (iso.empty() ? "<td>" : "<td data-sort=\"" + iso + "\">") + time_element(p.versions.front().last_run);
     }},
    {"Executable path",
     [](program_history const& p, std::string const&) { return "<td class=\"path\">" + html_text(p.executable_path); }},
    {"Prefetch file", [](program_history const& p,
                         std::string const&) { return "<td>" + std::to_string(p.versions.size()) + " versions"; }},
};

void put_fact(std::ostream& out, std::string_view label, std::string const& value_html)
{
    put(out, "<dt>");
    put(out, label);
    put(out, "</dt><dd>" + value_html + "</dd>\n");
}

} // namespace

bool html_string_table::add(std::string const& key)
{
    if (numbers.size() >= html_strings_kept || key.size() > html_string_length_kept ||
        bytes + key.size() > html_string_bytes_kept || numbers.count(key) != 0)
        return false;
    numbers.emplace(key, static_cast<std::uint32_t>(numbers.size()));
    bytes += key.size();
    return true;
}

std::string html_text(std::string_view text) { return html_escaped(text, /*marked=*/true); }
std::string html_attribute(std::string_view text) { return html_escaped(text, /*marked=*/false); }

void write_html_head(std::ostream& out, run_facts const& facts, html_tags const& tags)
{
    std::string command;
    for (std::string const& argument : facts.arguments) command += (command.empty() ? "" : " ") + argument;
    put(out, "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
             "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
             "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; img-src data:; "
             "style-src 'unsafe-inline'; script-src 'sha256-" +
                 std::string(html_script_sha256) +
                 "'\">\n<link rel=\"icon\" href=\"data:,\">\n"
                 // Rows stand hidden until the script shows a page of them: a browser that laid out ten
                 // thousand rows as they arrive would take many seconds. Without script, all show.
                 "<noscript><style>tr.file{display:table-row!important}</style></noscript>\n<title>kito Prefetch report, " +
                 html_attribute(facts.host) + "</title>\n<style>");
    put(out, html_style);
    put(out, "</style>\n</head>\n<body>\n<header><h1>Prefetch report</h1></header>\n"
             "<section id=\"run\"><h2>Run</h2>\n<dl class=\"facts\">\n");
    put_fact(out, "Tool", "kito " + html_text(facts.version));
    put_fact(out, "Run at", time_element(facts.started) + " UTC");
    put_fact(out, "Host", html_text(facts.host));
    put_fact(out, "System", html_text(facts.system));
    put_fact(out, "Command", "<code>" + html_text(command) + "</code>");
    for (auto const& [label, value] : tags) put_fact(out, label, html_text(value));
    put(out, "</dl>\n</section>\n");
    put(out, html_timeline_frame);
    put(out, "<section id=\"table\"><h2>Files</h2>\n<table id=\"files\">\n<thead><tr>");
    for (html_column const& column : columns) {
        put(out, "<th scope=\"col\" data-kind=\"");
        put(out, column.sort);
        put(out, "\"><button type=\"button\">");
        put(out, column.heading);
        put(out, "</button></th>");
    }
    put(out, "</tr></thead>\n<tbody>\n");
}

bool write_html_report(std::ostream& out, report_subject const& file, report_settings const& settings, bool decoded,
                       html_page_state& state, check_tally& tally)
{
    if (decoded) {
        std::vector<finding> const found = find_inconsistencies(file.entry, settings.run_started);
        put_file_rows(out, {file, ++state.rows, found}, state.strings);
        count_checks(tally, file.entry, found);
        return true;
    }
    if (state.failed.size() < html_failed_listed)
        state.failed.push_back({file.file_path, failure_reason(file.entry.failure)});
    else ++state.failed_unlisted;
    return false;
}

void write_html_history(std::ostream& out, program_history const& program, html_page_state& state)
{
    if (program.versions.empty()) return;
    std::string const id = std::to_string(++state.rows);
    // The newest version's runs are drawn as a file's are; the runs that only
    // older versions keep are drawn apart.
    program_version const& newest = program.versions.front();
    std::set<std::uint64_t> earlier = newest.runs, older;
    earlier.erase(newest.last_run);
    for (std::uint64_t const run : program.all_runs())
        if (!newest.runs.contains(run)) older.insert(run);
    put(out, "<tr class=\"file\" id=\"f" + id + "\" data-last=\"" + iso_time(newest.last_run) + "\" data-runs=\"" +
                 iso_list(earlier) + "\" data-older=\"" + iso_list(older) + "\" data-modified=\"\"");
    // The details: each version's name and last run, newest first.
    put(out, " data-details='{\"new\":[],\"versions\":[");
    for (std::size_t i = 0; i < program.versions.size(); ++i) {
        put(out, i == 0 ? "[" : ",[");
        put_json_shown(out, program.versions[i].display_name);
        put(out, ",\"" + iso_time(program.versions[i].last_run) + "\"]");
    }
    put(out, "]}'>");
    for (html_column const& column : columns) {
        auto const found =
            std::find_if(std::begin(history_cells), std::end(history_cells),
                         [&column](history_cell const& c) { return std::string_view(c.heading) == column.heading; });
        put(out, (found == std::end(history_cells) ? std::string("<td>") : found->cell(program, id)) + "</td>");
    }
    put(out, "</tr>\n");
}

void write_html_end(std::ostream& out, html_page_state const& state, std::vector<html_count> const& counts)
{
    if (state.rows == 0)
        put(out, "<tr><td colspan=\"" + std::to_string(std::size(columns)) + "\">No file was decoded.</td></tr>\n");
    put(out, "</tbody>\n</table>\n<p id=\"paging\" hidden><span>Not every file is shown.</span><button "
             "type=\"button\">Show more</button></p>\n"
             "</section>\n<section id=\"failed\"><h2>Files that failed</h2>\n");
    if (state.failed.empty()) put(out, "<p>None.</p>\n");
    else {
        put(out, "<ol class=\"list\">\n");
        for (html_failed_file const& f : state.failed)
            put(out, "<li><span class=\"path\">" + html_text(f.path) + "</span>: " + html_text(f.reason) + "</li>\n");
        put(out, "</ol>\n");
    }
    if (state.failed_unlisted > 0)
        put(out, "<p>" + std::to_string(state.failed_unlisted) +
                     " more failed files are not listed here; the -json form gives each with its reason.</p>\n");
    put(out, "</section>\n<section id=\"summary\"><h2>Summary</h2>\n<dl class=\"facts\">\n");
    for (html_count const& count : counts) put_fact(out, html_text(count.label), std::to_string(count.value));
    put(out, "</dl>\n</section>\n<script>");
    put(out, html_script);
    put(out, "</script>\n</body>\n</html>\n");
}
