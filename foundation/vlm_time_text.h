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

std::string month_abbreviation(int month);

bool format_time_text(std::string& date_out, std::string& time_out, time const& t,
                      std::string const& date_format, std::string const& time_format);
bool format_time_text_whole(std::string& date_out, std::string& time_out, time const& t,
                            std::string const& date_format, std::string const& time_format);
bool build_date_time_layout(date_time_layout& out, std::string const& date_format,
                            std::string const& time_format, bool paired);
bool format_time_layout(std::string& date_out, std::string& time_out, time const& t,
                        date_time_layout const& layout);

bool parse_date_fields(char const* date, std::string const& order, char separator,
                       std::uint16_t& day, std::uint16_t& month, std::uint16_t& year);
bool parse_clock_fields(std::string const& text, std::uint16_t& hour, std::uint16_t& minute, double& seconds);
bool parse_date_time(char const* date, char const* clock, std::string const& order, char separator,
                     _windows_systemtime& out);

} // namespace vlm
