#pragma once
// Date and time text under the run's -dateformat and -timeformat, by two
// formatters that are deliberately not alike, and the reverse parse for the
// time range options.
#include <array>
#include <cstdint>
#include <string>

#include "foundation/vlm_time.h"

namespace vlm {

// Four bytes compiled once from the two formats: separator, date bits,
// paired flag and fraction digits, zero.
struct date_time_layout {
    std::array<std::uint8_t, 4> bytes{};
    std::uint32_t word() const
    {
        return bytes[0] | (bytes[1] << 8) | (bytes[2] << 16) | (static_cast<std::uint32_t>(bytes[3]) << 24);
    }
};

// "Jan" to "Dec" for 1 to 12; "" for any other month.
std::string month_abbreviation(int month);

// Needs the two format texts; gives the date and clock texts of `t` in UTC,
// an empty format giving an empty text. Fails, both emptied, for an invalid `t`.
bool format_time_text(std::string& date_out, std::string& time_out, time const& t, std::string const& date_format,
                      std::string const& time_format);
// As format_time_text, with the clock cut at its first ".": whole seconds.
bool format_time_text_whole(std::string& date_out, std::string& time_out, time const& t, std::string const& date_format,
                            std::string const& time_format);
// Compiles the two formats and the paired flag into `out`. Fails when the date
// format lacks a month, year or day or has them in an order it cannot name;
// `out` then holds what was compiled before the stop.
bool build_date_time_layout(date_time_layout& out, std::string const& date_format, std::string const& time_format,
                            bool paired);
// As format_time_text, under a compiled layout; an all-zero layout means the
// default formats. Fails, both emptied, for an invalid `t`.
bool format_time_layout(std::string& date_out, std::string& time_out, time const& t, date_time_layout const& layout);

// Needs a date of three numbers split by `separator` and their order as three
// of "YMD"; gives the fields, a two-digit year moved into 1931-2030. Fails,
// fields 0, on a bad order or number, a month above 12 or a day above 31.
bool parse_date_fields(char const* date, std::string const& order, char separator, std::uint16_t& day,
                       std::uint16_t& month, std::uint16_t& year);
// Needs "h:m[:s]" with an optional "am"/"pm" ("pm" adds 12 hours); gives the
// fields. Fails without a ":", on an empty minute, or on a number that does
// not fit 16 bits.
bool parse_clock_fields(std::string const& text, std::uint16_t& hour, std::uint16_t& minute, double& seconds);
// A date and an optional clock (null or "" for midnight) into calendar fields,
// milliseconds rounded. Fails when either part fails or the seconds do not fit
// 16 bits; `out` may then hold the date.
bool parse_date_time(char const* date, char const* clock, std::string const& order, char separator,
                     _windows_systemtime& out);

} // namespace vlm
