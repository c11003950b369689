#include "foundation/vlm_time_text.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

using namespace std::string_literals;

constexpr std::uint64_t july_4 = 131121092967890123ULL; // 2016-07-04 12:34:56.7890123 UTC
constexpr std::uint64_t feb_3 = 126256467060070000ULL;  // 2001-02-03 04:05:06.007 UTC

// One row per pair of formats: "date|time" from each formatter. The two are
// meant to differ, and the rows say where.
TEST(vlm_time_text, both_formatters) {
    struct { std::uint64_t ticks; char const *date_format, *time_format; std::string text, layout; } const cases[] = {
        {july_4, "yyyy-mm-dd", "hh:mm:ss.xxx", "2016-07-04|12:34:56.789", "2016-07-04|12:34:56.789"},
        {feb_3, "yyyy-mm-dd", "hh:mm:ss.xxx", "2001-02-03|04:05:06.007", "2001-02-03|04:05:06.007"},
        {july_4, "dd-mm-yy", "hh:mm:ss", "04-07-16|12:34:56", "04-07-2016|12:34:56"},
        {july_4, "mmm dd, yy", "hh:mm:ss", "Jul 04, 16|12:34:56", "Jul 04 2016|12:34:56"},
        {july_4, "yy/mm/dd", "hh:mm:ss", "16/07/04|12:34:56", "2016/07/04|12:34:56"},
        {july_4, "yyyymmdd", "hh:mm:ss", "2016/07/04|12:34:56", "2016\0"s "07\0"s "04|12:34:56"}, // no separator
        {july_4, "yy  mmm dd", "hh:mm:ss", "16 Jul 04|12:34:56", "|12:34:56"}, // no layout date for this order
        // No day, or a year in the middle: the text falls back on mm/dd/yyyy, the layout drops the fraction.
        {july_4, "yyyy-mm-", "hh:mm:ss.xxx", "07/04/2016|12:34:56.789", "|12:34:56"},
        {july_4, "mm/yyyy/dd", "hh:mm:ss.xxx", "07/04/2016|12:34:56.789", "|12:34:56"},
        {july_4, "mm-dd", "hh:mm:ss.xxx", "07/04/2016|12:34:56.789", "|12:34:56"}, // no year
        {july_4, "yyyy-mm-dd", "hh:mm:ss.xxxxxxxxx", "2016-07-04|12:34:56.789012300", "2016-07-04|12:34:56.789012300"},
        {july_4, "yyyy-mm-dd", "hh:mm:xxxxxxxxxx", "2016-07-04|12:34", "2016-07-04|12:34:56.789012300"}, // ten x
        {july_4, "yyyy-mm-dd", "mi:ss.xxx", "2016-07-04|:56.789", "2016-07-04|12:34:56.789"}, // no "hh:mm"
    };
    vlm::time const invalid(0, vlm::filetime);
    for (auto const& c : cases) {
        vlm::time const t(c.ticks, vlm::filetime);
        std::string date, clock, l_date, l_clock;
        EXPECT_TRUE(vlm::format_time_text(date, clock, t, c.date_format, c.time_format));
        vlm::date_time_layout layout;
        vlm::build_date_time_layout(layout, c.date_format, c.time_format, false);
        EXPECT_TRUE(vlm::format_time_layout(l_date, l_clock, t, layout));
        EXPECT_EQ(std::pair(date + "|" + clock, l_date + "|" + l_clock), std::pair(c.text, c.layout))
            << c.date_format << " " << c.time_format;
        // An invalid time gives nothing, whatever the outputs held.
        EXPECT_FALSE(vlm::format_time_text(date, clock, invalid, c.date_format, c.time_format) || date + clock != "");
        EXPECT_FALSE(vlm::format_time_layout(l_date, l_clock, invalid, layout) || l_date + l_clock != "");
    }
    std::string date, clock;
    vlm::time const t(july_4, vlm::filetime);
    EXPECT_TRUE(vlm::format_time_text_whole(date, clock, t, "yyyy-mm-dd", "hh:mm:ss.xxxxxx"));
    EXPECT_EQ(clock, "12:34:56");
    // An empty layout is the zero word of the default formats, unless date and time are paired.
    for (auto [paired, text] : {std::pair{false, "2016-07-04 12:34:56.789"}, {true, " 12:34:56"}}) {
        vlm::date_time_layout layout;
        vlm::build_date_time_layout(layout, "", "hh:mm:ss", paired);
        EXPECT_TRUE(vlm::format_time_layout(date, clock, t, layout));
        EXPECT_EQ(date + " " + clock, text);
    }
}

TEST(vlm_time_text, date_and_clock_fields) {
    // Expected fields, or "" where the parse fails.
    struct { char const* text; char separator; char const* fields; } const dates[] = {
        {"0x7e0/7/4", '/', "2016-7-4"}, {"99-01-02", '-', "1999-1-2"}, {"31-01-02", '-', "1931-1-2"},
        {"30-01-02", '-', "2030-1-2"}, {"2016/00/00", '/', "2016-0-0"}, {"2016/07/04/09", '/', "2016-7-4"},
        {"2016///07/04", '/', "2016-7-4"}, {"2016////07/04", '/', ""}, // two empty tokens skipped, a third read
        {"2016/07/////04", '/', "2016-7-4"}, {"2016/12/32", '/', ""}, {"2016/07/", '/', ""}, {"/2016/07/04", '/', ""},
        {"2016/Jul/04", '/', ""}, {"70000/07/04", '/', ""}, {nullptr, '/', ""},
    };
    for (auto const& c : dates) {
        std::uint16_t day = 9, month = 9, year = 9;
        bool const ok = vlm::parse_date_fields(c.text, "YMD", c.separator, day, month, year);
        std::string const fields = std::to_string(year) + "-" + std::to_string(month) + "-" + std::to_string(day);
        EXPECT_EQ(ok ? fields : "", c.fields) << (c.text ? c.text : "null");
    }
    struct { char const* text; char const* fields; } const clocks[] = {
        {"01:02:03.25", "1 2 3.25"}, {"  9:15AM ", "9 15 0"}, {"9:15:30 pm", "21 15 30"}, {"12:30 pm", "24 30 0"},
        {"1230", ""}, {"12:", ""}, {"12::30", ""}, {"99999:00", ""},
        {"12:0000000000000000000000000000005", "12 5 0"}, {"12:00000000000000000000000000000005", ""}, // 31, 32 chars
    };
    for (auto const& c : clocks) {
        std::uint16_t hour = 0, minute = 0;
        double seconds = -1;
        bool const ok = vlm::parse_clock_fields(c.text, hour, minute, seconds);
        std::ostringstream fields;
        fields << hour << " " << minute << " " << seconds;
        EXPECT_EQ(ok ? fields.str() : "", c.fields) << c.text;
    }
    // Milliseconds round, and carry; a missing clock is midnight.
    for (auto [clock, ticks_at] : {std::pair{"12:34:56.9996", 131121092970000000ULL}, {nullptr, 131120640000000000}}) {
        vlm::_windows_systemtime f;
        std::uint64_t ticks = 0;
        EXPECT_TRUE(vlm::parse_date_time("2016/07/04", clock, "YMD", '/', f) && vlm::fields_to_ticks(f, ticks));
        EXPECT_EQ(ticks, ticks_at);
    }
}

} // namespace
