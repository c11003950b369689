#include "reports/field_output.h"

#include <cstdio>
#include <iomanip>

#include "foundation/vlm_string.h"
#include "foundation/vlm_time_text.h"

namespace {

// A row holds at most 255 cells; anything else is never made ready.
constexpr std::int32_t max_row_size = 256;
// Kinds above this are unknown to the layer and never stored.
constexpr std::uint16_t max_cell_kind = 29;

field_cell* writable_cell(field_row& row, int index)
{
    if (!row.row_ready || index < 0 || index >= row.row_size) return nullptr;
    auto& cell = row.cells[static_cast<std::size_t>(index)];
    cell = field_cell{};
    return &cell;
}

std::streamsize column_width(std::vector<field_cell> const& columns, int index)
{
    if (index < 0 || static_cast<std::size_t>(index) >= columns.size()) return 0;
    return static_cast<std::streamsize>(columns[static_cast<std::size_t>(index)].cell_width);
}

void write_number_cell(std::ostream& line, field_cell const& cell, std::streamsize width,
                       report_settings const& settings)
{
    line << std::right;
    if (!settings.no_padding && width > 0) line << std::setw(width);
    bool hex = settings.base16 && !(cell.cell_flags & cell_flag_decimal);
    line << (hex ? std::hex : std::dec) << cell.cell_value << std::dec;
}

void write_text_cell(std::ostream& line, field_cell& cell, std::streamsize width, report_settings const& settings)
{
    line << std::left;
    if (!settings.no_padding) line << std::setw(width);
    if (settings.value_substitute_from != 0)
        substitute_char(cell.cell_text, settings.value_substitute_from, settings.value_substitute_to,
                        /*ignore_case=*/false);
    if (settings.delimited_form) mark_newlines(cell.cell_text);
    line << cell.cell_text;
}

void append_label(std::string& text, std::string const& label)
{
    if (label.empty()) return;
    if (!text.empty()) text += "; ";
    text += label;
}

} // namespace

void define_column(field_cell& cell, std::string const& name, std::uint64_t width)
{
    cell = field_cell{};
    cell.cell_text = name;
    cell.cell_width = width;
    cell.cell_flags = cell_flag_column;
}

void define_column_typed(field_cell& cell, std::string const& name, std::uint64_t width, std::uint16_t kind,
                         std::uint32_t flags)
{
    define_column(cell, name, width);
    cell.cell_kind = kind;
    cell.cell_flags = flags | cell_flag_column;
}

void set_row_size(field_row& row, std::int32_t size, bool clear)
{
    row.cells.clear();
    row.row_ready = size > 0 && size < max_row_size;
    row.row_size = row.row_ready ? size : 0;
    if (!row.row_ready) return;
    row.cells.resize(static_cast<std::size_t>(size));
    if (!clear) return;
    for (auto& cell : row.cells) cell.cell_kind = cell_text;
}

int set_text_cell(field_row& row, int index, std::string const& text, std::uint16_t kind, std::uint32_t flags)
{
    if (kind > max_cell_kind) return 1;
    if (field_cell* cell = writable_cell(row, index)) {
        cell->cell_kind = kind;
        cell->cell_flags = flags;
        cell->cell_text = text;
    }
    return 1;
}

int set_stream_cell(field_row& row, int index, std::ostringstream const& stream, std::uint16_t kind,
                    std::uint32_t flags)
{
    if (kind == cell_text) return set_text_cell(row, index, stream.str(), kind, flags);
    // Other kinds keep the stream's bytes raw; no report of this tool uses them.
    if (kind > max_cell_kind) return 1;
    if (field_cell* cell = writable_cell(row, index)) {
        std::string const bytes = stream.str();
        cell->cell_kind = kind;
        cell->cell_flags = flags;
        cell->cell_bytes.assign(bytes.begin(), bytes.end());
    }
    return 1;
}

int set_value_cell(field_row& row, int index, std::uint64_t value, std::uint16_t kind, std::uint32_t flags)
{
    field_cell* cell = writable_cell(row, index);
    if (!cell) return 1;
    cell->cell_kind = kind;
    cell->cell_flags = flags;
    cell->cell_value = value;
    if (kind != cell_time_pair) return 1;
    // The time half of a pair is an empty cell of its own column.
    writable_cell(row, index + 1);
    return 2;
}

void write_header_row(std::ostream& out, report_settings const& settings, report_state& state)
{
    state.header_pending = false;
    std::ostringstream line;
    line << std::left << std::setfill(' ');
    auto const& columns = state.column_list;
    for (std::size_t i = 0; i < columns.size(); ++i) {
        if (columns[i].cell_kind == cell_time_half && settings.blank_before_time) line << ' ';
        if (!settings.no_padding) line << std::setw(static_cast<std::streamsize>(columns[i].cell_width));
        line << columns[i].cell_text;
        if (i + 1 < columns.size()) line << settings.separator;
    }
    line << '\n';
    std::string const text = line.str();
    out.write(text.data(), static_cast<std::streamsize>(text.size()));
}

void write_time_cell(std::ostream& line, field_row const& row, int& index, report_settings const& settings,
                     std::vector<field_cell> const& columns)
{
    field_cell const& cell = row.cells[static_cast<std::size_t>(index)];
    std::string date;
    std::string clock;
    vlm::time const when(cell.cell_value, vlm::filetime);
    if (!when.valid || !vlm::format_time_layout(date, clock, when, settings.date_time_layout)) {
        date = clock = settings.no_padding ? "" : " ";
    }
    line << std::left;
    if (cell.cell_kind == cell_time_joined) {
        if (!settings.no_padding) {
            if (settings.blank_before_time) line << ' ';
            line << std::setw(column_width(columns, index));
        }
        line << date + " " + clock;
        return;
    }
    if (!settings.no_padding) line << std::setw(column_width(columns, index));
    line << date << settings.separator;
    if (++index >= row.row_size) return;
    // This blank stands even without padding: the compact -csv form keeps it.
    if (settings.blank_before_time) line << ' ';
    if (!settings.no_padding) line << std::setw(column_width(columns, index));
    line << clock;
}

void write_field_row(std::ostream& out, field_row& row, report_settings const& settings, report_state& state)
{
    if (!row.row_ready) return;
    if (state.header_pending) write_header_row(out, settings, state);
    std::ostringstream line;
    line << std::setfill(' ');
    for (int i = 0; i < row.row_size; ++i) {
        field_cell& cell = row.cells[static_cast<std::size_t>(i)];
        switch (cell.cell_kind) {
        case cell_text: write_text_cell(line, cell, column_width(state.column_list, i), settings); break;
        case cell_number: write_number_cell(line, cell, column_width(state.column_list, i), settings); break;
        case cell_time_pair:
        case cell_time_joined: write_time_cell(line, row, i, settings, state.column_list); break;
        default: break;
        }
        if (i + 1 < row.row_size) line << settings.separator;
    }
    line << '\n';
    std::string const text = line.str();
    out.write(text.data(), static_cast<std::streamsize>(text.size()));
}

void mark_newlines(std::string& text)
{
    if (text.find_first_of("\n\r") == std::string::npos) return;
    std::string result;
    std::size_t from = 0;
    std::size_t lf = text.find('\n');
    if (lf == std::string::npos) {
        // Only CRs: each one is marked. With an LF present, lone CRs stay.
        for (char c : text) {
            if (c == '\r') result += "[CR]";
            else result += c;
        }
        text = std::move(result);
        return;
    }
    for (; lf != std::string::npos; lf = text.find('\n', from)) {
        if (lf > 0 && text[lf - 1] == '\r') {
            // The CR may already have closed an "[LFCR]" ("\n\r\n"); it then
            // counts for both marks, and nothing is copied.
            result.append(text, from, lf - 1 > from ? lf - 1 - from : 0);
            result += "[CRLF]";
            from = lf + 1;
        } else if (lf + 1 < text.size() && text[lf + 1] == '\r') {
            result.append(text, from, lf - from);
            result += "[LFCR]";
            from = lf + 2;
        } else {
            result.append(text, from, lf - from);
            result += "[LF]";
            from = lf + 1;
        }
    }
    result.append(text, from, std::string::npos);
    text = std::move(result);
}

void group_macb_times(time_map& map, time_quad& quad)
{
    static char const letters[] = "MACB";
    std::uint64_t const raw[4] = {quad.m, quad.a, quad.c, quad.b};
    std::string const* const labels[4] = {&quad.m_label, &quad.a_label, &quad.c_label, &quad.b_label};
    vlm::time times[4];
    bool present[4];
    for (int k = 0; k < 4; ++k) {
        times[k] = vlm::time(raw[k], quad.time_kind);
        present[k] = times[k].valid && raw[k] != 0;
    }
    std::size_t const extra_count = quad.extra_times.size();
    quad.extra_used.resize(extra_count, false);
    auto extra_text = [](std::vector<std::string> const& texts, std::size_t k) {
        return k < texts.size() ? texts[k] : std::string();
    };
    auto extra_time = [&](std::size_t k) { return vlm::time(quad.extra_times[k], quad.time_kind); };

    bool merged[4] = {false, false, false, false};
    // Each present time makes a row under the earliest letter among its
    // equals; later letters with the same instant join that row.
    for (int own = 0; own < 4; ++own) {
        if (!present[own] || merged[own]) continue;
        macb_row row;
        row.when = times[own];
        std::string mark(4, '.');
        mark[static_cast<std::size_t>(own)] = letters[own];
        append_label(row.type_text, *labels[own]);
        for (int k = 0; k < 4; ++k) {
            if (k > own && !merged[k] && present[k] && times[k].filetime_ticks == times[own].filetime_ticks) {
                mark[static_cast<std::size_t>(k)] = letters[k];
                append_label(row.type_text, *labels[k]);
                merged[k] = true;
            }
            if (k != 2) continue;
            // Additional stamps stand for further C times. The C row leaves
            // them unused, so that they come up again as rows of their own.
            for (std::size_t e = 0; e < extra_count; ++e) {
                if (quad.extra_used[e] || extra_time(e).filetime_ticks != times[own].filetime_ticks) continue;
                if (own != 2) quad.extra_used[e] = true;
                mark[2] = 'C';
                append_label(row.type_text, extra_text(quad.extra_labels, e));
                row.source_override = extra_text(quad.extra_sources, e);
                row.name_override = extra_text(quad.extra_names, e);
            }
        }
        row.macb_text = mark;
        if (labels[own]->empty() && !quad.base_text.empty()) row.type_text = quad.base_text + " [" + mark + "]";
        map.emplace(raw[own], std::move(row));
    }
    for (std::size_t e = 0; e < extra_count; ++e) {
        if (quad.extra_used[e]) continue;
        macb_row row;
        row.when = extra_time(e);
        row.macb_text = "..C.";
        row.type_text = extra_text(quad.extra_labels, e);
        row.source_override = extra_text(quad.extra_sources, e);
        row.name_override = extra_text(quad.extra_names, e);
        map.emplace(quad.extra_times[e], std::move(row));
    }
}

std::string volume_serial_text(std::uint32_t serial)
{
    char text[16];
    std::snprintf(text, sizeof text, "%04x-%04x", static_cast<unsigned>(serial >> 16),
                  static_cast<unsigned>(serial & 0xffffu));
    return text;
}

std::string filetime_text(std::uint64_t filetime, std::string const& date_format, std::string const& time_format)
{
    std::string date;
    std::string clock;
    vlm::format_time_text(date, clock, vlm::time(filetime, vlm::filetime), date_format, time_format);
    return date + " " + clock;
}

namespace {

template <typename range, typename text_of>
std::string join_with_semicolons(range const& items, text_of text)
{
    std::size_t length = 0;
    for (auto const& item : items) length += text(item).size() + 2;
    std::string joined;
    joined.reserve(length);
    bool first = true;
    for (auto const& item : items) {
        if (!first) joined += "; ";
        joined += text(item);
        first = false;
    }
    return joined;
}

} // namespace

std::string join_texts(std::vector<std::string> const& items)
{
    return join_with_semicolons(items, [](std::string const& text) -> std::string const& { return text; });
}

std::string join_texts(offset_string_map const& items)
{
    return join_with_semicolons(items, [](auto const& pair) { return pair.second; });
}

std::uint64_t created_time(prefetch_entry const& entry)
{
    return entry.run_count != 1 ? entry.input_stats_changed : entry.last_run;
}
