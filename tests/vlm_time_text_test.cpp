#include "foundation/vlm_time_text.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

using namespace std::string_literals;

constexpr std::uint64_t july_4 = 131121092967890123ULL; // 2016-07-04 12:34:56.7890123 UTC
constexpr std::uint64_t feb_3 = 126256467060070000ULL;  // 2001-02-03 04:05:06.007 UTC

// One row per pair of formats: "date|time" from each formatter. The two are
// meant to differ, and the rows say where.
TEST(vlm_time_text, both_formatters)
{
    struct {
        std::uint64_t ticks;
        char const* date_format;
        char const* time_format;
        std::string text, layout;
    } const cases[] = {
        {july_4, "yyyy-mm-dd", "hh:mm:ss.xxx", "2016-07-04|12:34:56.789", "2016-07-04|12:34:56.789"},
        {feb_3, "yyyy-mm-dd", "hh:mm:ss.xxx", "2001-02-03|04:05:06.007", "2001-02-03|04:05:06.007"},
        {july_4, "mm/dd/yyyy", "hh:mm:ss", "07/04/2016|12:34:56", "07/04/2016|12:34:56"},
        {july_4, "dd-mm-yy", "hh:mm:ss", "04-07-16|12:34:56", "04-07-2016|12:34:56"},
        {july_4, "mm/dd/yy", "hh:mm:ss", "07/04/16|12:34:56", "07/04/2016|12:34:56"},
        {july_4, "mmm dd, yy", "hh:mm:ss", "Jul 04, 16|12:34:56", "Jul 04 2016|12:34:56"},
        {july_4, "dd mmm yyyy", "hh:mm:ss", "04 Jul 2016|12:34:56", "04 Jul 2016|12:34:56"},
        {july_4, "yy/mm/dd", "hh:mm:ss", "16/07/04|12:34:56", "2016/07/04|12:34:56"},
        // No separator: the text keeps "/", the layout writes its zero byte.
        {july_4, "yyyymmdd", "hh:mm:ss", "2016/07/04|12:34:56", "2016\0"s "07\0"s "04|12:34:56"},
        // Year, then month name: the layout has no date for this order.
        {july_4, "yy  mmm dd", "hh:mm:ss", "16 Jul 04|12:34:56", "|12:34:56"},
        // No day: the text falls back on month/day/year, the layout stops
        // before the fraction.
        {july_4, "yyyy-mm-", "hh:mm:ss.xxx", "07/04/2016|12:34:56.789", "|12:34:56"},
        // The year can only lead or trail.
        {july_4, "mm/yyyy/dd", "hh:mm:ss.xxx", "07/04/2016|12:34:56.789", "|12:34:56"},
        {july_4, "yyyy-mm-dd", "hh:mm:ss.xxxx", "2016-07-04|12:34:56.7890", "2016-07-04|12:34:56.7890"},
        {july_4, "yyyy-mm-dd", "hh:mm:ss.xxxxx", "2016-07-04|12:34:56.78901", "2016-07-04|12:34:56.78901"},
        {july_4, "yyyy-mm-dd", "hh:mm:ss.xxxxxx", "2016-07-04|12:34:56.789012", "2016-07-04|12:34:56.789012"},
        {july_4, "yyyy-mm-dd", "hh:mm:ss.xxxxxxx", "2016-07-04|12:34:56.7890123", "2016-07-04|12:34:56.7890123"},
        {july_4, "yyyy-mm-dd", "hh:mm:ss.xxxxxxxx", "2016-07-04|12:34:56.78901230", "2016-07-04|12:34:56.78901230"},
        {july_4, "yyyy-mm-dd", "hh:mm:ss.xxxxxxxxx", "2016-07-04|12:34:56.789012300", "2016-07-04|12:34:56.789012300"},
        // Ten x: no fraction at all in the text, nine digits in the layout.
        {july_4, "yyyy-mm-dd", "hh:mm:xxxxxxxxxx", "2016-07-04|12:34", "2016-07-04|12:34:56.789012300"},
        {july_4, "yyyy-mm-dd", "hh:mm:ss.x", "2016-07-04|12:34:56", "2016-07-04|12:34:56"},
        // Seconds without "hh:mm": the text begins with ":".
        {july_4, "yyyy-mm-dd", "mi:ss.xxx", "2016-07-04|:56.789", "2016-07-04|12:34:56.789"},
    };
    vlm::time const invalid(0, vlm::filetime);
    for (auto const& c : cases) {
        SCOPED_TRACE(testing::Message() << c.date_format << " " << c.time_format);
        vlm::time const t(c.ticks, vlm::filetime);
        std::string date, clock;
        EXPECT_TRUE(vlm::format_time_text(date, clock, t, c.date_format, c.time_format));
        EXPECT_EQ(date + "|" + clock, c.text);
        vlm::date_time_layout layout;
        vlm::build_date_time_layout(layout, c.date_format, c.time_format, false);
        EXPECT_TRUE(vlm::format_time_layout(date, clock, t, layout));
        EXPECT_EQ(date + "|" + clock, c.layout);
        // An invalid time gives nothing, whatever the outputs held.
        EXPECT_FALSE(vlm::format_time_text(date, clock, invalid, c.date_format, c.time_format));
        EXPECT_EQ(date + clock, "");
        date = clock = "stale";
        EXPECT_FALSE(vlm::format_time_layout(date, clock, invalid, layout));
        EXPECT_EQ(date + clock, "");
    }
}

TEST(vlm_time_text, whole_seconds_and_empty_layout)
{
    vlm::time const t(july_4, vlm::filetime);
    std::string date, clock;
    EXPECT_TRUE(vlm::format_time_text_whole(date, clock, t, "yyyy-mm-dd", "hh:mm:ss.xxxxxx"));
    EXPECT_EQ(clock, "12:34:56");
    EXPECT_TRUE(vlm::format_time_text_whole(date, clock, t, "yyyy-mm-dd", "mi:ss.xxx"));
    EXPECT_EQ(clock, ":56");
    // A zero layout word means the default formats.
    EXPECT_TRUE(vlm::format_time_layout(date, clock, t, vlm::date_time_layout{}));
    EXPECT_EQ(date + " " + clock, "2016-07-04 12:34:56.789");
}

TEST(vlm_time_text, layout_bytes)
{
    struct case_row {
        char const* date_format;
        char const* time_format;
        bool paired, result;
        std::array<std::uint8_t, 4> bytes;
    } const cases[] = {
        {"yyyy-mm-dd", "hh:mm:ss.xxx", false, true, {'-', 0x86, 0x06, 0}},
        {"dd/mm/yyyy", "hh:mm:ss", true, true, {'/', 0x26, 0x01, 0}},
        {"mmm dd, yy", "hh:mm:ss.xxxxxx", false, true, {' ', 0x59, 0x0C, 0}},
        {"yyyymmdd", "hh:mm:xxxxxxxxxx", false, true, {0, 0x86, 0x12, 0}},
        {"", "hh:mm:ss.xxxxxxx", true, true, {0, 0, 0x0F, 0}},
        {"yyyy-mm-", "hh:mm:ss.xxx", false, false, {'-', 0x06, 0, 0}},
        {"dd-yy-mm", "hh:mm:ss.xxx", false, false, {'-', 0x0A, 0, 0}},
        {"xx/xx/xxxx", "hh:mm:ss.xxx", false, false, {'/', 0, 0, 0}},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(testing::Message() << c.date_format << " " << c.time_format);
        vlm::date_time_layout layout;
        layout.bytes = {1, 2, 3, 4};
        EXPECT_EQ(vlm::build_date_time_layout(layout, c.date_format, c.time_format, c.paired), c.result);
        EXPECT_EQ(layout.bytes, c.bytes);
    }
}

TEST(vlm_time_text, month_abbreviations)
{
    std::string names;
    for (int month = -1; month <= 13; ++month) names += vlm::month_abbreviation(month) + ",";
    EXPECT_EQ(names, ",,Jan,Feb,Mar,Apr,May,Jun,Jul,Aug,Sep,Oct,Nov,Dec,,");
}

TEST(vlm_time_text, date_fields)
{
    // Expected year-month-day, or "" where the date fails.
    struct { char const* text; char separator; char const* fields; } const cases[] = {
        {"2016/07/04", '/', "2016-7-4"}, {"0x7e0/7/4", '/', "2016-7-4"}, {"99-01-02", '-', "1999-1-2"},
        {"31-01-02", '-', "1931-1-2"}, {"30-01-02", '-', "2030-1-2"}, {"0-01-02", '-', "2000-1-2"},
        {"2016/00/00", '/', "2016-0-0"}, {"2016/07/04/09", '/', "2016-7-4"},
        {"2016///07/04", '/', "2016-7-4"},   // two empty tokens are skipped before the month
        {"2016////07/04", '/', ""},          // a third is read, and fails
        {"2016/07/////04", '/', "2016-7-4"}, // any number before the day
        {"2016/13/01", '/', ""}, {"2016/12/32", '/', ""}, {"2016/07", '/', ""}, {"2016/07/", '/', ""},
        {"/2016/07/04", '/', ""}, {"2016/Jul/04", '/', ""}, {"2016-07-04", '/', ""},
        {"70000/07/04", '/', ""}, // no 16-bit year
    };
    for (auto const& c : cases) {
        std::uint16_t day = 9, month = 9, year = 9;
        bool const ok = vlm::parse_date_fields(c.text, "YMD", c.separator, day, month, year);
        std::string const fields = std::to_string(year) + "-" + std::to_string(month) + "-" + std::to_string(day);
        EXPECT_EQ(ok ? fields : "", c.fields) << c.text;
    }
    std::uint16_t day, month, year;
    EXPECT_FALSE(vlm::parse_date_fields(nullptr, "YMD", '/', day, month, year));
}

TEST(vlm_time_text, clock_fields)
{
    // Expected hour, minute and seconds, or "" where the clock fails.
    struct { char const* text; char const* fields; } const cases[] = {
        {"12:30", "12 30 0"}, {"01:02:03.25", "1 2 3.25"}, {"  9:15AM ", "9 15 0"}, {"9:15:30 pm", "21 15 30"},
        {"12:30 pm", "24 30 0"}, {"7:05pm", "19 5 0"}, {"1230", ""}, {"12:", ""}, {"12::30", ""},
        {"12:0000000000000000000000000000005", "12 5 0"}, // a minute of 31 characters
        {"12:00000000000000000000000000000005", ""},      // and of 32
        {"99999:00", ""},
    };
    for (auto const& c : cases) {
        std::uint16_t hour = 0, minute = 0;
        double seconds = -1;
        bool const ok = vlm::parse_clock_fields(c.text, hour, minute, seconds);
        std::ostringstream fields;
        fields << hour << " " << minute << " " << seconds;
        EXPECT_EQ(ok ? fields.str() : "", c.fields) << c.text;
    }
}

TEST(vlm_time_text, date_and_clock_to_an_instant)
{
    struct case_row {
        char const* date;
        char const* clock;
        bool ok;
        std::uint64_t ticks;
    } const cases[] = {
        {"2016/07/04", "12:34:56.789", true, 131121092967890000ULL},
        {"2016/07/04", "12:34:56.9996", true, 131121092970000000ULL}, // milliseconds round, and carry
        {"2016/07/04", nullptr, true, 131120640000000000ULL},
        {"2016/07/04", "", true, 131120640000000000ULL},
        {"2016/07/04", "noon", false, 0},
        {"", "12:00", false, 0},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.date);
        vlm::_windows_systemtime fields;
        ASSERT_EQ(vlm::parse_date_time(c.date, c.clock, "YMD", '/', fields), c.ok);
        if (!c.ok) continue;
        std::uint64_t ticks = 0;
        EXPECT_TRUE(vlm::fields_to_ticks(fields, ticks));
        EXPECT_EQ(ticks, c.ticks);
    }
}

} // namespace
