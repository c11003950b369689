#include "reports/field_output.h"

#include <gtest/gtest.h>

#include <sstream>

#include "support/test_table.h"


namespace {

json const table = test_table("field_output");
constexpr std::uint64_t ft(std::uint64_t unix_seconds) { return 116444736000000000ULL + unix_seconds * 10000000ULL; }
constexpr std::uint64_t t1 = ft(1401618030), t2 = ft(1401696000); // 2014-06-01 10:20:30, 06-02 08:00:00

TEST(MarkNewlines, MarksLineEndsByTheirNeighbours)
{
    auto const marked = [](std::string text) { return mark_newlines(text), text; };
    for (json const& r : table.at("newlines")) EXPECT_EQ(marked(r[0]), r[1]) << r[0];
}

TEST(GroupMacbTimes, MergesEqualTimesUnderTheEarliestLetter)
{
    for (json const& c : table.at("macb")) {
        time_quad quad;
        quad.m = c[1], quad.a = c[2], quad.c = c[3], quad.b = c[4], quad.extra_times = c[5].get<std::vector<std::uint64_t>>();
        quad.m_label = "lm", quad.a_label = "la", quad.c_label = "lc", quad.b_label = "lb";
        quad.extra_labels = {"x0", "x1"}, quad.extra_sources = quad.extra_names = {"", ""};
        time_map map;
        group_macb_times(map, quad);
        std::vector<std::pair<std::string, std::string>> rows;
        for (auto const& [raw, row] : map) rows.emplace_back(row.macb_text, row.type_text);
        EXPECT_EQ(json(rows), c[6]) << c[0];
    }
}

// A row written as -csv writes it: compact, "," with commas made blanks.
std::string write_csv_row(field_row& row, std::size_t columns)
{
    report_settings settings;
    settings.separator = ",", settings.value_substitute_from = ',', settings.value_substitute_to = ' ';
    settings.no_padding = true, settings.delimited_form = true;
    bool header_pending = false;
    std::vector<field_cell> column_list(columns);
    report_state state{header_pending, column_list};
    std::ostringstream out;
    write_field_row(out, row, settings, state);
    return out.str();
}

TEST(FieldRow, SizeLimitsCellIndexesAndTheLastColumn)
{
    field_row row;
    set_row_size(row, 255, true);
    EXPECT_EQ(write_csv_row(row, 255), std::string(254, ',') + "\n");
    // A row that is not ready takes nothing, counts its columns all the same, and writes not even a line end.
    for (int size : {0, 256, -1}) {
        set_row_size(row, size, false);
        EXPECT_EQ(set_text_cell(row, 0, "x", cell_text, 0), 1) << size;
        EXPECT_EQ(set_value_cell(row, 0, 1, cell_time_pair, 0), 1) << size;
        EXPECT_EQ(write_csv_row(row, 0), "") << size;
    }
    set_row_size(row, 3, false);
    EXPECT_EQ(set_value_cell(row, 1, t1, cell_time_pair, 0), 2);
    // Out of range, -1 and a kind above 29 store nothing, and count one column each.
    EXPECT_EQ(set_value_cell(row, 3, 7, cell_number, 0) + set_text_cell(row, -1, "x", cell_text, 0) +
              set_text_cell(row, 0, "x", 30, 0), 3);
    EXPECT_EQ(write_csv_row(row, 3), ",2014-06-01, 10:20:30.000\n");
    // A time pair in the last column stops after the date and its separator.
    set_row_size(row, 2, false);
    set_text_cell(row, 0, "a\nb,c", cell_text, 0);
    set_value_cell(row, 1, t2, cell_time_pair, 0);
    EXPECT_EQ(write_csv_row(row, 2), "a[LF]b c,2014-06-02,\n");
}

} // namespace
