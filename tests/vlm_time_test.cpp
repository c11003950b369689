#include "foundation/vlm_time.h"

#include <gtest/gtest.h>

#include <random>

namespace {

constexpr std::uint64_t second = 10000000ULL;
constexpr std::uint64_t ticks_1970 = 116444736000000000ULL;
constexpr std::uint64_t ticks_3001 = 441796896000000000ULL; // 3001-01-01 00:00:00 UTC
constexpr std::uint64_t july_4 = 131121092960000000ULL;     // 2016-07-04 12:34:56 UTC

// The offset of the zone in force, asked of the C library. The test zones
// (UTC, JST-9, EST5) have no daylight saving.
long zone_offset()
{
    std::time_t const now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    return local.tm_gmtoff;
}

std::string fields_text(vlm::_windows_systemtime const& f)
{
    char text[96];
    std::snprintf(text, sizeof text, "%04u-%02u-%02u %02u:%02u:%02u w%u %u/%llu/%llu/%llu", f.year, f.month, f.day,
                  f.hour, f.minute, f.second, f.day_of_week, f.millisecond,
                  static_cast<unsigned long long>(f.microsecond), static_cast<unsigned long long>(f.nanosecond),
                  static_cast<unsigned long long>(f.picosecond));
    return text;
}

TEST(vlm_time, worked_instants)
{
    struct { std::uint64_t ticks; char const* fields; } const cases[] = {
        {116444736010000000ULL, "1970-01-01 00:00:01 w4 0/0/0/0"},
        {129000000000000000ULL, "2009-10-14 13:20:00 w3 0/0/0/0"},
        {125962560000000000ULL, "2000-02-29 00:00:00 w2 0/0/0/0"},
        {131121092967890120ULL, "2016-07-04 12:34:56 w1 789/789012/789012000/789012000000"},
        {131121092961234567ULL, "2016-07-04 12:34:56 w1 123/123456/123456700/123456700000"},
        {441796895990000000ULL, "3000-12-31 23:59:59 w3 0/0/0/0"},
    };
    for (auto const& c : cases) {
        vlm::_windows_systemtime f;
        EXPECT_TRUE(vlm::ticks_to_fields(c.ticks, f));
        EXPECT_EQ(fields_text(f), c.fields) << c.ticks;
    }
}

// The calendar agrees with the C library over the whole 63-bit range, not
// only in the years the tool prints.
TEST(vlm_time, fields_agree_with_gmtime)
{
    struct { std::uint64_t low, high; } const ranges[] = {
        {ticks_1970, ticks_3001}, {0, ticks_1970}, {ticks_3001, 0x7FFFFFFFFFFFFFFFULL}};
    std::mt19937_64 random(20160704);
    for (auto const& r : ranges) {
        std::uniform_int_distribution<std::uint64_t> pick(r.low, r.high - 1);
        for (int i = 0; i < 20000; ++i) {
            std::uint64_t const ticks = pick(random);
            std::time_t const seconds = static_cast<std::time_t>(ticks / second) - 11644473600LL;
            std::tm e{};
            ASSERT_NE(gmtime_r(&seconds, &e), nullptr);
            vlm::_windows_systemtime f;
            ASSERT_TRUE(vlm::ticks_to_fields(ticks, f));
            std::string const fields = fields_text(f);
            char expected[40];
            int const n = std::snprintf(expected, sizeof expected, "%04d-%02d-%02d %02d:%02d:%02d w%d ",
                                        e.tm_year + 1900, e.tm_mon + 1, e.tm_mday, e.tm_hour, e.tm_min, e.tm_sec,
                                        e.tm_wday);
            ASSERT_EQ(fields.substr(0, n), expected) << ticks;
        }
    }
}

TEST(vlm_time, local_fields_agree_with_localtime)
{
    ASSERT_EQ(vlm::local_utc_offset(), zone_offset());
    std::mt19937_64 random(3000);
    // A day inside both ends, where the local day is a real one.
    std::uniform_int_distribution<std::int64_t> pick(86400, (ticks_3001 - ticks_1970) / second - 86400);
    for (int i = 0; i < 20000; ++i) {
        std::time_t const seconds = pick(random);
        std::tm e{}, local{};
        localtime_r(&seconds, &e);
        ASSERT_TRUE(vlm::unix_to_local_tm(seconds, local)) << seconds;
        ASSERT_EQ(std::make_tuple(local.tm_year, local.tm_yday, local.tm_mon, local.tm_mday, local.tm_hour,
                                  local.tm_min, local.tm_sec, local.tm_wday),
                  std::make_tuple(e.tm_year, e.tm_yday, e.tm_mon, e.tm_mday, e.tm_hour, e.tm_min, e.tm_sec, e.tm_wday))
            << seconds;
    }
    std::tm local{};
    EXPECT_FALSE(vlm::unix_to_local_tm(-1, local));
}

TEST(vlm_time, validity_limits_follow_the_zone)
{
    long const offset = zone_offset();
    // The last valid instant is 3000-12-31 23:59:59 local time.
    std::uint64_t const last_valid = ticks_3001 - (offset + 1) * static_cast<std::int64_t>(second);
    struct { std::uint64_t ticks; bool valid; } const cases[] = {
        {0, false}, {1, false}, {ticks_1970, false}, {ticks_1970 + second - 1, false}, {ticks_1970 + second, true},
        {ticks_3001 - second, offset <= 0}, {ticks_3001, offset < 0}, {last_valid, true},
        {last_valid + second, false}, {0x7FFFFFFFFFFFFFFFULL, false}, {0x8000000000000000ULL, false},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.ticks);
        vlm::time const t(c.ticks, vlm::filetime);
        EXPECT_EQ(t.valid, c.valid ? 1u : 0u);
        EXPECT_EQ(t.converted_ticks, c.valid ? c.ticks : 0);
        EXPECT_EQ(t.utc_fields.year == 0, !c.valid);
    }
}

// 2016-07-04 12:34:56 UTC in every encoding, and the failures of each.
TEST(vlm_time, encodings)
{
    std::uint64_t const wrapped_1969 = (0ULL - second) / second; // kept for inspection, never printed
    struct {
        std::uint64_t value;
        vlm::type_time type;
        bool valid;
        std::uint64_t filetime_ticks, unix_seconds;
    } const cases[] = {
        {july_4, vlm::filetime, true, july_4, 1467635696},
        {13112109296789012ULL, vlm::chrome, true, july_4 + 7890120, 1467635696},
        {0, vlm::chrome, false, 0, 0},
        {1467635696789012ULL, vlm::firefox3, true, july_4 + 7890120, 1467635696},
        {static_cast<std::uint64_t>(-1000000), vlm::firefox3, false, ticks_1970 - second, wrapped_1969},
        {1467635696, vlm::unix_time, true, july_4, 1467635696},
        {0, vlm::unix_time, false, ticks_1970, 0},
        {static_cast<std::uint64_t>(-5), vlm::unix_time, false, ticks_1970 - 5 * second, 0},
        {489328496, vlm::safari_time, true, july_4, 1467635696},
        // A nanosecond count: the fraction is the value modulo 10^7.
        {489328496789012345ULL, vlm::safari_time, true, july_4 + 9012345, 1467635696},
        {july_4, static_cast<vlm::type_time>(16), false, 0, 0},
        {july_4, static_cast<vlm::type_time>(vlm::filetime | vlm::unix_time), false, 0, 0},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(testing::Message() << c.value << " as " << c.type);
        vlm::time const t(c.value, c.type);
        EXPECT_EQ(t.valid, c.valid ? 1u : 0u);
        EXPECT_EQ(t.filetime_ticks, c.filetime_ticks);
        EXPECT_EQ(t.unix_seconds, c.unix_seconds);
    }
    EXPECT_STREQ(vlm::type_time_label(vlm::unix_time), "unix time");
    EXPECT_STREQ(vlm::type_time_label(vlm::safari_time), "safari time");
}

TEST(vlm_time, dos_words)
{
    struct { std::uint64_t ticks; std::uint16_t date, time; } const cases[] = {
        {july_4, 0x48E4, 0x645C},
        {july_4 + 3 * second, 0x48E4, 0x645E}, // :59 rounds up to 30 two-second units
        {july_4 + 1 * second, 0x48E4, 0x645D}, // :57 rounds up
        {119600064000000000ULL, 0x0021, 0},    // 1980-01-01, the first DOS day
        {119600063990000000ULL, 0, 0},         // 1979-12-31 23:59:59
        {137919572000000000ULL, 0, 0},         // 2038-01-19, year 58
    };
    for (auto const& c : cases) {
        vlm::time const t(c.ticks, vlm::filetime);
        ASSERT_EQ(t.valid, 1u);
        EXPECT_EQ(std::make_pair(t.dos.date, t.dos.time), std::make_pair(c.date, c.time)) << c.ticks;
    }
}

TEST(vlm_time, fields_to_ticks_with_its_year_2000_slip)
{
    constexpr std::uint64_t day = 86400 * second;
    auto const utc = [](int y, int mo, int d, int h) {
        std::tm tm{};
        tm.tm_year = y - 1900, tm.tm_mon = mo - 1, tm.tm_mday = d, tm.tm_hour = h;
        return static_cast<std::uint64_t>(timegm(&tm) + 11644473600LL) * second;
    };
    struct { std::uint16_t year, month, day, hour; std::uint64_t expected; } const cases[] = {
        {1601, 1, 1, 0, 0},
        {2004, 2, 29, 0, utc(2004, 2, 29, 0)},
        {2004, 3, 1, 0, utc(2004, 3, 1, 0)},
        {2000, 2, 29, 0, utc(2000, 2, 29, 0)},
        {2000, 3, 1, 0, utc(2000, 3, 1, 0) - day},     // 2000 read as a common year
        {2000, 12, 31, 0, utc(2000, 12, 31, 0) - day},
        {2300, 3, 1, 0, utc(2300, 3, 1, 0) + day},     // and 2300 as a leap year
        {2016, 0, 15, 0, utc(2015, 12, 15, 0)},        // month 0 is the December before
        {2016, 14, 1, 0, utc(2017, 2, 1, 0)},
        {2016, 7, 4, 24, utc(2016, 7, 5, 0)},          // "12:xx pm" carries into the next day
    };
    for (auto const& c : cases) {
        vlm::_windows_systemtime f;
        f.year = c.year, f.month = c.month, f.day = c.day, f.hour = c.hour, f.minute = 34, f.second = 56;
        f.millisecond = 789;
        std::uint64_t ticks = 1;
        EXPECT_TRUE(vlm::fields_to_ticks(f, ticks));
        EXPECT_EQ(ticks, c.expected + 2096 * second + 7890000) << c.year << "-" << c.month << "-" << c.day;
    }
}

TEST(vlm_time, times_to_unix_batch)
{
    std::array<std::uint64_t, 4> values = {0, july_4 + 7890120, ticks_1970 - second, 0x8000000000000000ULL};
    vlm::type_time type = vlm::filetime;
    vlm::times_to_unix(values, type);
    EXPECT_EQ(type, vlm::unix_time);
    std::array<std::uint64_t, 4> const expected = {0, 1467635696, (0ULL - second) / second, 0};
    EXPECT_EQ(values, expected);
    vlm::times_to_unix(values, type); // already unix seconds: nothing moves
    EXPECT_EQ(values, expected);
}

TEST(vlm_time, now_is_the_clock)
{
    auto const before = static_cast<std::uint64_t>(std::time(nullptr));
    vlm::time const now = vlm::time_now();
    EXPECT_EQ(now.valid, 1u);
    EXPECT_GE(now.unix_seconds, before);
    EXPECT_LE(now.unix_seconds, static_cast<std::uint64_t>(std::time(nullptr)));
}

} // namespace
