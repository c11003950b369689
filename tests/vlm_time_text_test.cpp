#include "foundation/vlm_time_text.h"

#include <gtest/gtest.h>

#include <sstream>

#include "support/test_table.h"

namespace {

json const table = test_table("time_text");
constexpr std::uint64_t july_4 = 131121092967890123ULL; // 2016-07-04 12:34:56.7890123 UTC

// One row per pair of formats: "date|time" from each formatter. The two are
// meant to differ, and the rows say where.
TEST(vlm_time_text, both_formatters) {
    vlm::time const invalid(0, vlm::filetime);
    for (json const& row : table.at("formats")) {
        auto const c = row.get<std::tuple<std::uint64_t, std::string, std::string, std::string, std::string>>();
        auto const& [ticks, date_format, time_format, text, layout_text] = c;
        vlm::time const t(ticks, vlm::filetime);
        std::string date, clock, l_date, l_clock;
        EXPECT_TRUE(vlm::format_time_text(date, clock, t, date_format.c_str(), time_format.c_str()));
        vlm::date_time_layout layout;
        vlm::build_date_time_layout(layout, date_format.c_str(), time_format.c_str(), false);
        EXPECT_TRUE(vlm::format_time_layout(l_date, l_clock, t, layout));
        EXPECT_EQ(std::pair(date + "|" + clock, l_date + "|" + l_clock), std::pair(text, layout_text))
            << date_format << " " << time_format;
        // An invalid time gives nothing, whatever the outputs held.
        EXPECT_FALSE(vlm::format_time_text(date, clock, invalid, date_format.c_str(), time_format.c_str()) || date + clock != "");
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
    for (json const& c : table.at("dates")) {
        std::uint16_t day = 9, month = 9, year = 9;
        std::string const text = c[0].is_null() ? "null" : c[0].get<std::string>();
        bool const ok = vlm::parse_date_fields(c[0].is_null() ? nullptr : text.c_str(), "YMD", c[1].get<std::string>()[0], day, month, year);
        std::string const fields = std::to_string(year) + "-" + std::to_string(month) + "-" + std::to_string(day);
        EXPECT_EQ(ok ? fields : "", c[2]) << text;
    }
    for (json const& c : table.at("clocks")) {
        std::uint16_t hour = 0, minute = 0;
        double seconds = -1;
        bool const ok = vlm::parse_clock_fields(c[0].get<std::string>().c_str(), hour, minute, seconds);
        std::ostringstream fields;
        fields << hour << " " << minute << " " << seconds;
        EXPECT_EQ(ok ? fields.str() : "", c[1]) << c[0];
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
