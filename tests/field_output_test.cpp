#include "reports/field_output.h"

#include <gtest/gtest.h>

#include <sstream>

#include "driver/kito_user_context.h"

namespace {

constexpr std::uint64_t epoch = 116444736000000000ULL;
constexpr std::uint64_t ft(std::uint64_t unix_seconds, std::uint64_t ticks = 0)
{
    return epoch + unix_seconds * 10000000ULL + ticks;
}
constexpr std::uint64_t june1 = ft(1401618030, 1230000); // 2014-06-01 10:20:30.123
constexpr std::uint64_t june2 = ft(1401696000);          // 2014-06-02 08:00:00.000

TEST(MarkNewlines, MarksLineEndsByTheirNeighbours)
{
    struct {
        char const* in;
        char const* out;
    } const cases[] = {
        {"plain", "plain"},
        {"A\r\nB\nC\n\rD", "A[CRLF]B[LF]C[LFCR]D"},
        {"A\rB\nC", "A\rB[LF]C"}, // with an LF present a lone CR stays
        {"A\rB", "A[CR]B"},
        {"\r\r", "[CR][CR]"},
        {"\n", "[LF]"},
        {"\n\r\n", "[LFCR][CRLF]"}, // the CR serves both marks
        {"x\r\n", "x[CRLF]"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.in);
        std::string text = c.in;
        mark_newlines(text);
        EXPECT_EQ(text, c.out);
    }
}

struct macb_case {
    char const* name;
    std::uint64_t m, a, c, b;
    std::vector<std::pair<std::string, std::string>> rows; // mark, type, in map order
};

TEST(GroupMacbTimes, MergesEqualTimesUnderTheEarliestLetter)
{
    std::uint64_t const t1 = june1, t2 = june2, t3 = ft(1401700000);
    macb_case const cases[] = {
        {"all equal", t1, t1, t1, t1, {{"MACB", "lm; la; lc; lb"}}},
        {"M absent, A=B", 0, t2, t1, t2, {{"..C.", "lc"}, {".A.B", "la; lb"}}},
        {"M=B and A=C", t2, t1, t1, t2, {{".AC.", "la; lc"}, {"M..B", "lm; lb"}}},
        {"all apart", t3, t2, t1, ft(1000), {{"...B", "lb"}, {"..C.", "lc"}, {".A..", "la"}, {"M...", "lm"}}},
        {"C=B only", t1, t2, t3, t3, {{"M...", "lm"}, {".A..", "la"}, {"..CB", "lc; lb"}}},
        {"all absent", 0, 0, 0, 0, {}},
        {"1970 exactly is no time", epoch, t1, 0, 0, {{".A..", "la"}}},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        time_quad quad;
        quad.m = c.m, quad.a = c.a, quad.c = c.c, quad.b = c.b;
        quad.m_label = "lm", quad.a_label = "la", quad.c_label = "lc", quad.b_label = "lb";
        time_map map;
        group_macb_times(map, quad);
        std::vector<std::pair<std::string, std::string>> rows;
        for (auto const& [raw, row] : map) rows.emplace_back(row.macb_text, row.type_text);
        EXPECT_EQ(rows, c.rows);
    }
}

TEST(GroupMacbTimes, AdditionalStampsFillTheCPosition)
{
    time_quad quad;
    quad.m = june1, quad.b = june2;
    quad.m_label = "lm", quad.b_label = "lb";
    quad.extra_times = {june2, ft(5000)};
    quad.extra_labels = {"x1", "x2"};
    quad.extra_sources = {"s1", "s2"};
    quad.extra_names = {"n1", "n2"};
    time_map map;
    group_macb_times(map, quad);
    std::vector<std::pair<std::string, std::string>> rows;
    for (auto const& [raw, row] : map) rows.emplace_back(row.macb_text, row.type_text);
    std::vector<std::pair<std::string, std::string>> const expected = {
        {"..C.", "x2"}, {"M...", "lm"}, {"..CB", "lb; x1"}};
    EXPECT_EQ(rows, expected);
    EXPECT_EQ(std::prev(map.end())->second.source_override, "s1");
}

// A row written as -csv writes it: compact, "," with commas made blanks.
std::string write_csv_row(std::vector<field_cell> const& columns, field_row& row)
{
    kito_user_context context;
    context.m_separator = ",";
    context.m_value_substitute_from = ',';
    context.m_value_substitute_to = ' ';
    context.m_no_padding = true;
    context.m_column_list = columns;
    context.m_header_pending = false;
    std::ostringstream out;
    write_field_row(out, row, context);
    return out.str();
}

TEST(FieldRow, SizeLimitsAndCellIndexes)
{
    field_row row;
    set_row_size(row, 255, true);
    EXPECT_TRUE(row.row_ready);
    EXPECT_EQ(row.cells[254].cell_kind, cell_text);
    for (int size : {0, 256, -1}) {
        SCOPED_TRACE(size);
        set_row_size(row, size, false);
        EXPECT_FALSE(row.row_ready);
        EXPECT_EQ(set_text_cell(row, 0, "x", cell_text, 0), 1);
        EXPECT_EQ(set_value_cell(row, 0, 1, cell_time_pair, 0), 1);
        EXPECT_EQ(write_csv_row({}, row), ""); // not even a line end
    }
    set_row_size(row, 3, false);
    EXPECT_EQ(set_value_cell(row, 1, june1, cell_time_pair, 0), 2);
    EXPECT_EQ(set_value_cell(row, 3, 7, cell_number, 0), 1);
    EXPECT_EQ(set_text_cell(row, -1, "x", cell_text, 0), 1);
    EXPECT_EQ(set_text_cell(row, 0, "x", 30, 0), 1);
    EXPECT_EQ(row.cells[0].cell_text, "");
    EXPECT_EQ(row.cells[1].cell_value, june1);
}

TEST(FieldRow, TimePairInTheLastColumnStopsAfterTheDate)
{
    field_row row;
    set_row_size(row, 2, false);
    set_text_cell(row, 0, "a\nb,c", cell_text, 0);
    set_value_cell(row, 1, june2, cell_time_pair, 0);
    std::vector<field_cell> columns(2);
    EXPECT_EQ(write_csv_row(columns, row), "a[LF]b c,2014-06-02,\n");
}

TEST(SharedTexts, SerialAndJoin)
{
    EXPECT_EQ(volume_serial_text(0xa4c300f1u), "a4c3-00f1");
    EXPECT_EQ(volume_serial_text(0), "0000-0000");
    EXPECT_EQ(join_texts({}), "");
    EXPECT_EQ(join_texts({"a", "b"}), "a; b");
}

} // namespace
