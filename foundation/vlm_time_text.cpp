#include "foundation/vlm_time_text.h"

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "foundation/number_text.h"

namespace vlm {

namespace {

constexpr auto npos = std::string::npos;

std::string padded(std::uint64_t value, std::size_t width)
{
    std::string text = std::to_string(value);
    if (text.size() < width) text.insert(0, width - text.size(), '0');
    return text;
}

// Fraction of the second at `digits` places, truncated: nanoseconds cut
// down to the wanted precision, so 3 places are the milliseconds and 6 the
// microseconds.
std::string fraction_text(_windows_systemtime const& fields, unsigned digits)
{
    std::uint64_t value = fields.nanosecond;
    for (unsigned i = digits; i < 9; ++i) value /= 10;
    return "." + padded(value, digits);
}

// Span from the first "xxx" to the last "x" of a time format; 0 without one.
unsigned fraction_width(std::string const& time_format)
{
    std::size_t const first = time_format.find("xxx");
    if (first == npos) return 0;
    return static_cast<unsigned>(time_format.rfind('x') - first + 1);
}

std::string date_text(_windows_systemtime const& f, std::string const& format)
{
    // The separator: "/" unless the format has none and has "-" or a blank.
    std::string separator = "/";
    bool comma_possible = false;
    if (format.find('/') == npos) {
        if (format.find('-') != npos) {
            separator = "-";
        } else if (format.find(' ') != npos) {
            separator = " ";
            comma_possible = true;
        }
    }
    std::size_t const yy = format.find("yy");
    std::size_t const mm = format.find("mm");
    std::size_t const dd = format.find("dd");
    std::size_t const mmm = format.find("mmm");

    std::string const month = mmm == npos ? padded(f.month, 2) : month_abbreviation(f.month);
    bool const month_first = mmm == npos ? mm < dd : (dd != npos && dd > mmm);
    bool const comma = comma_possible && month_first && dd != npos && format.find(',', dd) != npos;
    std::string const day = padded(f.day, 2);
    std::string year = padded(f.year, 4);
    if (format.find("yyyy") == npos && yy != npos) year = year.substr(2);

    if (yy == npos || mm == npos || dd == npos) return month + "/" + day + "/" + year;
    std::string const pair = mm < dd ? month + separator + day + (comma ? "," : "") : day + separator + month;
    return yy != 0 ? pair + separator + year : year + separator + pair;
}

std::string clock_text(_windows_systemtime const& f, std::string const& format)
{
    std::string text;
    if (format.find("hh:mm") != npos) text += padded(f.hour, 2) + ":" + padded(f.minute, 2);
    if (format.find("ss") != npos) text += ":" + padded(f.second, 2);
    unsigned const digits = fraction_width(format);
    if (digits >= 3 && digits <= 9) text += fraction_text(f, digits);
    return text;
}

// The date of a compiled layout; the separator byte is written even when it
// is 0, so "yyyymmdd" yields NUL bytes between the fields.
std::string layout_date_text(_windows_systemtime const& f, date_time_layout const& layout)
{
    std::uint8_t const bits = layout.bytes[1];
    std::string const s(1, static_cast<char>(layout.bytes[0]));
    bool const month_number = bits & 0x02;
    bool const month_name = bits & 0x01;
    if (!month_number && !month_name) return {};
    std::string const month = month_number ? padded(f.month, 2) : month_abbreviation(f.month);
    std::string const day = padded(f.day, 2);
    std::string const year = padded(f.year, (bits & 0x04) ? 4 : 2); // a minimum width: never cut
    if (bits & 0x20) return day + s + month + s + year;
    if (bits & 0x40) return month + s + day + s + year;
    if ((bits & 0x80) && month_number) return year + s + month + s + day;
    return {};
}

// Whole number of a clock piece: the text through atof, truncated. Values
// that cannot stand in a 16-bit field fail instead of wrapping.
bool clock_number(std::string const& text, std::uint16_t& out)
{
    double const value = std::atof(text.c_str());
    if (!(value > -1.0 && value < 65536.0)) return false;
    out = static_cast<std::uint16_t>(value);
    return true;
}

} // namespace

std::string month_abbreviation(int month)
{
    static char const* const names[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                        "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    if (month < 1 || month > 12) return {};
    return names[month - 1];
}

bool format_time_text(std::string& date_out, std::string& time_out, time const& t, std::string const& date_format,
                      std::string const& time_format)
{
    date_out.clear();
    time_out.clear();
    if (!t.valid) return false;
    if (!date_format.empty()) date_out = date_text(t.utc_fields, date_format);
    if (!time_format.empty()) time_out = clock_text(t.utc_fields, time_format);
    return true;
}

bool format_time_text_whole(std::string& date_out, std::string& time_out, time const& t, std::string const& date_format,
                            std::string const& time_format)
{
    if (!format_time_text(date_out, time_out, t, date_format, time_format)) return false;
    std::size_t const dot = time_out.find('.');
    if (dot != npos) time_out.erase(dot);
    return true;
}

bool build_date_time_layout(date_time_layout& out, std::string const& date_format, std::string const& time_format,
                            bool paired)
{
    out = {};
    if (paired) out.bytes[2] |= 0x01;
    if (!date_format.empty()) {
        for (char const c : {'/', '-', ' '}) {
            if (date_format.find(c) == npos) continue;
            out.bytes[0] = static_cast<std::uint8_t>(c);
            break;
        }
        std::size_t month = date_format.find("mmm");
        if (month != npos) {
            out.bytes[1] |= 0x01;
        } else {
            month = date_format.find("mm");
            if (month == npos) return false;
            out.bytes[1] |= 0x02;
        }
        std::size_t year = date_format.find("yyyy");
        if (year != npos) {
            out.bytes[1] |= 0x04;
        } else {
            year = date_format.find("yy");
            if (year == npos) return false;
            out.bytes[1] |= 0x08;
        }
        if (date_format.find(',') != npos) out.bytes[1] |= 0x10;
        std::size_t const day = date_format.find("dd");
        if (day == npos) return false;
        if (day < month && month < year) out.bytes[1] |= 0x20;
        else if (month < day && day < year) out.bytes[1] |= 0x40;
        else if (year < month && month < day) out.bytes[1] |= 0x80;
        else return false;
    }
    unsigned digits = fraction_width(time_format);
    if (digits > 9) digits = 9;
    out.bytes[2] |= static_cast<std::uint8_t>(digits << 1);
    return true;
}

bool format_time_layout(std::string& date_out, std::string& time_out, time const& t, date_time_layout const& layout)
{
    if (layout.word() == 0) return format_time_text(date_out, time_out, t, "yyyy-mm-dd", "hh:mm:ss.xxx");
    date_out.clear();
    time_out.clear();
    if (!t.valid) return false;
    _windows_systemtime const& f = t.utc_fields;
    date_out = layout_date_text(f, layout);
    time_out = padded(f.hour, 2) + ":" + padded(f.minute, 2) + ":" + padded(f.second, 2);
    unsigned digits = (layout.bytes[2] >> 1) & 0x0F;
    if (digits > 9) digits = 9;
    if (digits != 0) time_out += fraction_text(f, digits);
    return true;
}

bool parse_date_fields(char const* date, std::string const& order, char separator, std::uint16_t& day,
                       std::uint16_t& month, std::uint16_t& year)
{
    day = month = year = 0;
    if (date == nullptr || order.size() != 3) return false;
    std::vector<std::string> tokens;
    std::string const text = date;
    for (std::size_t start = 0;;) {
        std::size_t const end = text.find(separator, start);
        tokens.push_back(text.substr(start, end == npos ? npos : end - start));
        if (end == npos) break;
        start = end + 1;
    }

    std::uint32_t values[3] = {0, 0, 0}; // year, month, day
    std::size_t next = 0;
    for (std::size_t i = 0; i < 3; ++i) {
        // Empty tokens are skipped: up to two before the second field, any
        // number before the third.
        for (std::size_t skipped = 0; i > 0 && next < tokens.size() && tokens[next].empty(); ++skipped) {
            if (i == 1 && skipped == 2) break;
            ++next;
        }
        if (next >= tokens.size()) return false;
        std::uint32_t value = 0;
        if (!parse_u32_text(tokens[next++], value)) return false;
        std::size_t const slot =
            std::string("YMD").find(static_cast<char>(std::toupper(static_cast<unsigned char>(order[i]))));
        if (slot == npos) return false;
        values[slot] = value;
    }

    std::uint32_t y = values[0];
    if (y < 100) y += y >= 31 ? 1900 : 2000;
    if (y > 0xFFFF || values[1] >= 13 || values[2] >= 32) return false;
    year = static_cast<std::uint16_t>(y);
    month = static_cast<std::uint16_t>(values[1]);
    day = static_cast<std::uint16_t>(values[2]);
    return true;
}

bool parse_clock_fields(std::string const& text, std::uint16_t& hour, std::uint16_t& minute, double& seconds)
{
    hour = minute = 0;
    seconds = 0.0;
    std::size_t first = 0, last = text.size();
    while (first < last && std::isspace(static_cast<unsigned char>(text[first]))) ++first;
    while (last > first && std::isspace(static_cast<unsigned char>(text[last - 1]))) --last;
    std::string clock = text.substr(first, last - first);
    for (char& c : clock) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));

    std::size_t const colon = clock.find(':');
    if (colon == npos) return false;
    if (!clock_number(clock.substr(0, colon), hour)) return false;
    std::size_t const m = clock.find('m', colon + 1);
    bool const pm = m != npos && clock[m - 1] == 'p';
    if (pm) hour = static_cast<std::uint16_t>(hour + 12); // "12:30 pm" is hour 24, carried by the tick conversion

    // Minutes and seconds end at an "am" or "pm" marker and the blank before it.
    std::size_t end = clock.size();
    if (m != npos && (clock[m - 1] == 'a' || clock[m - 1] == 'p') && m - 1 > colon) {
        end = m - 1;
        if (end > colon + 1 && clock[end - 1] == ' ') --end;
    }
    std::size_t second_colon = clock.find(':', colon + 1);
    if (second_colon >= end) second_colon = npos;
    std::size_t const minute_end = second_colon == npos ? end : second_colon;
    std::size_t const minute_length = minute_end - (colon + 1);
    if (minute_length < 1 || minute_length > 31) return false;
    if (!clock_number(clock.substr(colon + 1, minute_length), minute)) return false;
    if (second_colon != npos) seconds = std::atof(clock.substr(second_colon + 1, end - second_colon - 1).c_str());
    return true;
}

bool parse_date_time(char const* date, char const* clock, std::string const& order, char separator,
                     _windows_systemtime& out)
{
    out = {};
    if (date == nullptr || *date == '\0') return false;
    if (!parse_date_fields(date, order, separator, out.day, out.month, out.year)) return false;
    double seconds = 0.0;
    if (clock != nullptr && *clock != '\0' && !parse_clock_fields(clock, out.hour, out.minute, seconds)) return false;
    if (!(seconds >= 0.0 && seconds < 65536.0)) return false; // the field is 16 bits wide
    auto const whole = static_cast<std::uint16_t>(seconds);
    out.second = whole;
    out.millisecond = static_cast<std::uint16_t>((seconds - whole) * 1000 + 0.5);
    return true;
}

} // namespace vlm
