#include "foundation/vlm_time.h"

#include <sys/time.h>

namespace vlm {

namespace {

constexpr std::uint64_t top_bit = 1ULL << 63;
// Seconds from 1601-01-01 to 2001-01-01, the epoch of safari time.
constexpr std::uint64_t seconds_1601_to_2001 = 12622780800ULL;
// The range check works in local time and gives up after this year.
constexpr int last_local_year = 3000;

// Offset of the day before the first of each month, by day of year from 0;
// the search for a month stops at the first entry not below the day.
constexpr int month_starts[2][13] = {
    {-1, 30, 58, 89, 119, 150, 180, 211, 242, 272, 303, 333, 364},
    {-1, 30, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365},
};

bool is_leap(std::int64_t year) { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

int days_in_year(std::int64_t year) { return is_leap(year) ? 366 : 365; }

// Every conversion ends here: ticks to unix seconds, the local range
// check, then the UTC fields and DOS words. Zero is the empty time slot.
void convert_ticks(time& t, std::uint64_t ticks)
{
    t.valid = 0;
    if (ticks == 0) return;
    t.filetime_ticks = ticks;
    if (!ticks_to_unix(ticks, t.unix_seconds) || t.unix_seconds == 0) return;
    // A value before 1970 has wrapped to an enormous count here and fails
    // the year limit of the local conversion.
    std::tm local{};
    if (!unix_to_local_tm(static_cast<std::int64_t>(t.unix_seconds), local)) return;
    t.local_tm = local;
    ticks_to_fields(ticks, t.utc_fields);
    t.converted_ticks = ticks;
    fields_to_dos(ticks, t.dos);
    t.valid = 1;
}

std::uint64_t firefox3_to_ticks(std::uint64_t value)
{
    auto const micros = static_cast<std::int64_t>(value);
    // Truncating signed division; the products wrap in unsigned arithmetic.
    auto const whole = static_cast<std::uint64_t>(micros / 1000000);
    auto const part = static_cast<std::uint64_t>(micros % 1000000);
    return part * 10 + whole * ticks_per_second + unix_epoch_ticks;
}

std::uint64_t safari_to_ticks(std::uint64_t value)
{
    if (value <= 0xFFFFFFFFULL) return (value + seconds_1601_to_2001) * ticks_per_second;
    // A larger value is a nanosecond count. Its fraction is the count modulo
    // 10^7, not its nanoseconds: the established reading of these stamps,
    // kept so that a value reads the same as it always has.
    return value % 10000000ULL + (value / 1000000000ULL + seconds_1601_to_2001) * ticks_per_second;
}

void construct_unix(time& t, std::uint64_t value)
{
    auto const seconds = static_cast<std::int64_t>(value);
    t.unix_seconds = value;
    t.filetime_ticks = unix_epoch_ticks + value * ticks_per_second;
    if (seconds < 1) {
        t.unix_seconds = 0;
        return;
    }
    std::tm local{};
    if (!unix_to_local_tm(seconds, local)) return;
    t.converted_ticks = t.filetime_ticks;
    convert_ticks(t, t.filetime_ticks);
}

} // namespace

char const* type_time_label(type_time type)
{
    switch (type) {
    case filetime: return "filetime";
    case chrome: return "chrome";
    case firefox3: return "firefox3";
    case unix_time: return "unix time";
    case safari_time: return "safari time";
    }
    return "";
}

time::time(std::uint64_t value, type_time type)
{
    switch (type) {
    case filetime: convert_ticks(*this, value); break;
    case chrome:
        filetime_ticks = value * 10;
        convert_ticks(*this, filetime_ticks);
        break;
    case firefox3: convert_ticks(*this, firefox3_to_ticks(value)); break;
    case unix_time: construct_unix(*this, value); break;
    case safari_time: convert_ticks(*this, safari_to_ticks(value)); break;
    }
}

time time_now()
{
    timeval now{};
    gettimeofday(&now, nullptr);
    std::uint64_t const ticks = static_cast<std::uint64_t>(now.tv_usec) * 10 +
                                static_cast<std::uint64_t>(now.tv_sec) * ticks_per_second + unix_epoch_ticks;
    return time(ticks, filetime);
}

bool ticks_to_unix(std::uint64_t ticks, std::uint64_t& out)
{
    if (ticks & top_bit) return false;
    out = (ticks - unix_epoch_ticks) / ticks_per_second;
    return true;
}

bool ticks_to_fields(std::uint64_t ticks, _windows_systemtime& out)
{
    out = {};
    if (ticks & top_bit) return false;
    std::uint64_t const total_seconds = ticks / ticks_per_second;
    std::uint64_t const fraction = ticks % ticks_per_second;

    // First guess the year by 365-day years, then take off the leap days
    // between 1600 and that year. Up to the year 3112 this lands at most one
    // year late, which the first step back mends; later, the leap days add up
    // to more than a year, and the two loops walk on to the right year so
    // that the calendar holds over the whole 63-bit range.
    auto const y = static_cast<std::int64_t>(ticks / 315360000000000ULL);
    std::int64_t const guess = y + 1600;
    std::int64_t const leap_days = guess / 4 - guess / 100 + guess / 400 - 388;
    std::int64_t rest = static_cast<std::int64_t>(total_seconds) - y * 31536000 - leap_days * 86400;
    std::int64_t year = y + 1601;
    while (rest < 0) rest += std::int64_t{days_in_year(--year)} * 86400;
    while (rest >= std::int64_t{days_in_year(year)} * 86400) rest -= std::int64_t{days_in_year(year++)} * 86400;
    auto const day_of_year = static_cast<int>(rest / 86400);
    auto const second_of_day = static_cast<int>(rest % 86400);

    int const(&starts)[13] = month_starts[is_leap(year) ? 1 : 0];
    int month = 1;
    while (month < 12 && starts[month] < day_of_year) ++month;

    out.year = static_cast<std::uint16_t>(year);
    out.month = static_cast<std::uint16_t>(month);
    out.day = static_cast<std::uint16_t>(day_of_year - starts[month - 1]);
    out.day_of_week = static_cast<std::uint16_t>((total_seconds / 86400 + 1) % 7); // 1601-01-01 was a Monday
    out.hour = static_cast<std::uint16_t>(second_of_day / 3600);
    out.minute = static_cast<std::uint16_t>(second_of_day % 3600 / 60);
    out.second = static_cast<std::uint16_t>(second_of_day % 60);
    out.millisecond = static_cast<std::uint16_t>(fraction / 10000);
    out.microsecond = fraction / 10;
    out.nanosecond = fraction * 100;
    out.picosecond = fraction * 100000;
    return true;
}

std::int32_t local_utc_offset()
{
    // The offset is that of the present moment, which the zone code answers
    // afresh from /etc/localtime on every call; a report asks for it for every
    // time it prints. It can change only when the clock's second does. Each
    // thread keeps its own answer: files are decoded on several at once.
    thread_local bool known = false;
    thread_local std::time_t asked_at = 0;
    thread_local std::int32_t offset = 0;
    std::time_t const now = std::time(nullptr);
    if (known && now == asked_at) return offset;
    std::tm local{};
    std::tm utc{};
    localtime_r(&now, &local);
    gmtime_r(&now, &utc);
    // gmtime's record has its daylight flag clear, so in summer this is the
    // zone's standard offset.
    offset = static_cast<std::int32_t>(std::mktime(&local) - std::mktime(&utc));
    asked_at = now;
    known = true;
    return offset;
}

bool unix_to_local_tm(std::int64_t seconds, std::tm& out)
{
    out = {};
    // Anything this large lies past the last local year; refusing it early
    // keeps the shift below from overflowing.
    constexpr std::int64_t beyond_range = 1LL << 40;
    if (seconds < 0 || seconds > beyond_range) return false;

    // The offset goes through single-precision hours and back; for zones
    // in whole quarter hours this is exact.
    float const hours = static_cast<float>(local_utc_offset()) / 3600.0f;
    std::int64_t const shifted = seconds + static_cast<std::int64_t>(hours * 3600.0f);

    // Truncating division: in the first hours of 1970 west of UTC the shifted
    // count is negative and the clock fields come out negative, but the
    // value still counts as in range.
    std::int64_t days = shifted / 86400;
    std::int64_t const r = shifted % 86400;
    out.tm_sec = static_cast<int>(r % 60);
    out.tm_min = static_cast<int>(r % 3600 / 60);
    out.tm_hour = static_cast<int>(r / 3600);
    out.tm_wday = static_cast<int>((days + 4) % 7);

    int year = 1970;
    while (days >= days_in_year(year)) {
        if (year == last_local_year) {
            out = {};
            return false;
        }
        days -= days_in_year(year);
        ++year;
    }
    out.tm_yday = static_cast<int>(days);
    out.tm_year = year - 1900;
    int const(&starts)[13] = month_starts[is_leap(year) ? 1 : 0];
    int month = 1;
    while (month < 12 && starts[month] < days) ++month;
    out.tm_mon = month - 1;
    out.tm_mday = static_cast<int>(days - starts[month - 1]);
    out.tm_isdst = 0;
    return true;
}

bool fields_to_dos(std::uint64_t ticks, dos_stamp& out)
{
    out = {};
    _windows_systemtime fields;
    if (!ticks_to_fields(ticks, fields)) return false;
    int const years = fields.year - 1980;
    if (years < 0 || years > 57) return false;
    out.date = static_cast<std::uint16_t>((years << 9) | (fields.month << 5) | fields.day);
    // Two-second units; an odd second rounds up, so 59 becomes 30.
    int const pairs = (fields.second / 2 + fields.second % 2) & 0x1F;
    out.time = static_cast<std::uint16_t>((fields.hour << 11) | (fields.minute << 5) | pairs);
    return true;
}

bool fields_to_ticks(_windows_systemtime const& fields, std::uint64_t& out)
{
    out = 0;
    std::int64_t m = static_cast<std::int64_t>(fields.month) - 1;
    std::int64_t n = static_cast<std::int64_t>(fields.year) - 1900;
    if (m < 0 || m > 11) {
        n += m / 12;
        m %= 12;
        if (m < 0) {
            m += 12;
            n -= 1;
        }
    }
    std::int64_t month_offset = month_starts[0][m];
    // The leap test looks at years since 1900, not at the year: 2000 counts
    // as common here (so March to December 2000 come out one day early) and
    // 2300 as leap. The range options have always read typed dates this
    // way, and a bound must mean the same instant from one version to the next.
    if (n > 0 && n % 4 == 0 && (n % 100 != 0 || n % 400 == 0) && m > 1) month_offset += 1;
    std::int64_t const p = n + 1899;
    std::int64_t const year_start = p / 4 - p / 100 + p / 400 - 388 + (n + 299) * 365;
    std::int64_t const days = year_start + month_offset + fields.day;
    std::int64_t const seconds = ((days * 24 + fields.hour) * 60 + fields.minute) * 60 + fields.second;
    if (seconds < 0) return false; // before 1601: no FILETIME can hold it
    out = static_cast<std::uint64_t>(seconds) * ticks_per_second + std::uint64_t{fields.millisecond} * 10000;
    return true;
}

void times_to_unix(std::array<std::uint64_t, 4>& values, type_time& type)
{
    if (type != filetime) return; // unix seconds stay as they are; other kinds are not converted here
    for (std::uint64_t& value : values) {
        if (value == 0) continue;
        std::uint64_t seconds = 0;
        // No validity check: a filetime before 1970 wraps to an enormous count.
        value = ticks_to_unix(value, seconds) ? seconds : 0;
    }
    type = unix_time;
}

} // namespace vlm
