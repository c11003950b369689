#pragma once
// The layer under the delimited reports: typed cells written as one aligned
// or compact line, and four labelled times merged into MACB rows.
#include <cstdint>
#include <map>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "foundation/vlm_time.h"
#include "prefetch/offset_string_map.h"
#include "reports/report_settings.h"

enum cell_kinds : std::uint16_t {
    cell_none = 0,         // column definition, or nothing (second half of a date/time pair)
    cell_number = 4,       // cell_value
    cell_text = 9,         // cell_text
    cell_time_pair = 10,   // FILETIME as date and time in two columns
    cell_time_joined = 11, // FILETIME as date and time in one column
    cell_time_half = 22,   // column definition of the time half of a pair
};

constexpr std::uint32_t cell_flag_decimal = 0x40000000;
constexpr std::uint32_t cell_flag_column = 0x80;

struct field_cell {
    std::uint16_t cell_kind = 0;
    std::uint16_t cell_limit = 20;
    std::uint32_t cell_flags = 0;
    std::uint64_t cell_width = 0;
    std::vector<std::uint8_t> cell_bytes;
    std::string cell_text;
    std::uint64_t cell_value = 0;
    std::vector<std::uint64_t> cell_values;
};

struct field_row {
    bool row_ready = false;
    std::int32_t row_size = 0;
    std::vector<field_cell> cells;
};

struct time_quad {
    std::uint64_t m = 0, a = 0, c = 0, b = 0;
    std::string m_label, a_label, c_label, b_label;
    std::string base_text;
    vlm::type_time time_kind = vlm::filetime;
    std::uint64_t group_tag = 0;
    std::vector<std::uint64_t> extra_times;
    std::vector<std::string> extra_labels;
    std::vector<std::string> extra_sources;
    std::vector<std::string> extra_names;
    std::vector<bool> extra_used;
};

struct macb_row {
    vlm::time when;
    std::string macb_text;
    std::string type_text;
    std::string source_override;
    std::string name_override;
    std::string user_override;
};

using time_map = std::multimap<std::uint64_t, macb_row>;

void define_column(field_cell& cell, std::string const& name, std::uint64_t width);
void define_column_typed(field_cell& cell, std::string const& name, std::uint64_t width, std::uint16_t kind,
                         std::uint32_t flags);
void set_row_size(field_row& row, std::int32_t size, bool clear);
int set_text_cell(field_row& row, int index, std::string const& text, std::uint16_t kind, std::uint32_t flags);
int set_stream_cell(field_row& row, int index, std::ostringstream const& stream, std::uint16_t kind,
                    std::uint32_t flags);
int set_value_cell(field_row& row, int index, std::uint64_t value, std::uint16_t kind, std::uint32_t flags);
// The column names of state.column_list as one line; clears header_pending.
void write_header_row(std::ostream& out, report_settings const& settings, report_state& state);
// One line of the row's cells under the columns, after the header if it is pending.
void write_field_row(std::ostream& out, field_row& row, report_settings const& settings, report_state& state);
// Writes the time cell at index, advancing index past the time half of a pair.
void write_time_cell(std::ostream& line, field_row const& row, int& index, report_settings const& settings,
                     std::vector<field_cell> const& columns);
void mark_newlines(std::string& text);
void group_macb_times(time_map& map, time_quad& quad);

// Texts the writers share. A volume serial as two groups of four lower-case
// hex digits ("a4c3-00f1"); a FILETIME as date, blank, time under the given
// formats (a time that is not valid gives the blank alone); members joined by
// "; " with nothing after the last.
std::string volume_serial_text(std::uint32_t serial);
std::string filetime_text(std::uint64_t filetime, std::string const& date_format, std::string const& time_format);
std::string join_texts(std::vector<std::string> const& items);
// The texts of the map, in key order, joined the same way.
std::string join_texts(offset_string_map const& items);
// The time a report gives as the program's creation: a program that ran once
// was created by that run; otherwise the Prefetch file's status change stands.
std::uint64_t created_time(prefetch_entry const& entry);
