#include "foundation/vlm_time.h"

#include <gtest/gtest.h>

#include <random>

#include "support/test_table.h"

namespace {

json const table = test_table("time");

constexpr std::uint64_t second = 10000000ULL;
constexpr std::uint64_t ticks_1970 = 116444736000000000ULL;
constexpr std::uint64_t ticks_3001 = 441796896000000000ULL; // 3001-01-01 00:00:00 UTC

// The offset of the zone in force (UTC, JST-9 and EST5 have no daylight saving).
long zone_offset() { std::time_t const now = std::time(nullptr); std::tm l{}; return localtime_r(&now, &l)->tm_gmtoff; }

// The calendar holds over the whole 63-bit range, not only the printed years.
TEST(vlm_time, fields_agree_with_gmtime) {
    std::mt19937_64 random(20160704);
    for (auto [low, high] : {std::pair{ticks_1970, ticks_3001}, {0ULL, ticks_1970}, {ticks_3001, ~0ULL >> 1}}) {
        std::uniform_int_distribution<std::uint64_t> pick(low, high - 1);
        for (int i = 0; i < 20000; ++i) {
            std::uint64_t const ticks = pick(random), fraction = ticks % second;
            std::time_t const seconds = static_cast<std::time_t>(ticks / second) - 11644473600LL;
            std::tm e{};
            vlm::_windows_systemtime f;
            ASSERT_TRUE(gmtime_r(&seconds, &e) && vlm::ticks_to_fields(ticks, f));
            using row = std::array<std::uint64_t, 11>;
            ASSERT_EQ((row{f.year, f.month, f.day, f.hour, f.minute, f.second, f.day_of_week, f.millisecond,
                           f.microsecond, f.nanosecond, f.picosecond}),
                      (row{e.tm_year + 1900ULL, e.tm_mon + 1ULL, (std::uint64_t)e.tm_mday, (std::uint64_t)e.tm_hour,
                           (std::uint64_t)e.tm_min, (std::uint64_t)e.tm_sec, (std::uint64_t)e.tm_wday,
                           fraction / 10000, fraction / 10, fraction * 100, fraction * 100000}))
                << ticks;
        }
    }
}

TEST(vlm_time, local_fields_agree_with_localtime) {
    ASSERT_EQ(vlm::local_utc_offset(), zone_offset());
    std::mt19937_64 random(3000);
    std::uniform_int_distribution<std::int64_t> pick(86400, (ticks_3001 - ticks_1970) / second - 86400);
    for (int i = 0; i < 20000; ++i) {
        std::time_t const seconds = pick(random);
        std::tm e{}, l{};
        localtime_r(&seconds, &e);
        ASSERT_TRUE(vlm::unix_to_local_tm(seconds, l)) << seconds;
        ASSERT_EQ(std::tie(l.tm_year, l.tm_yday, l.tm_mon, l.tm_mday, l.tm_hour, l.tm_min, l.tm_sec, l.tm_wday),
                  std::tie(e.tm_year, e.tm_yday, e.tm_mon, e.tm_mday, e.tm_hour, e.tm_min, e.tm_sec, e.tm_wday))
            << seconds;
    }
    std::tm l{};
    EXPECT_FALSE(vlm::unix_to_local_tm(-1, l));
}

TEST(vlm_time, validity_limits_follow_the_zone) {
    long const offset = zone_offset();
    // The last valid instant is 3000-12-31 23:59:59 local time.
    std::uint64_t const last_valid = ticks_3001 - (offset + 1) * static_cast<std::int64_t>(second);
    for (auto [ticks, valid] : {std::pair{0ULL, false}, {ticks_1970, false}, {ticks_1970 + second - 1, false},
                                {ticks_1970 + second, true}, {ticks_3001 - second, offset <= 0},
                                {ticks_3001, offset < 0}, {last_valid, true}, {last_valid + second, false},
                                {1ULL << 63, false}}) {
        vlm::time const t(ticks, vlm::filetime);
        EXPECT_EQ(std::tuple(t.valid, t.converted_ticks, t.utc_fields.year == 0),
                  std::tuple(valid ? 1u : 0u, valid ? ticks : 0, !valid)) << ticks;
    }
}

// The encodings the writers use, their failures, and the present moment.
TEST(vlm_time, encodings) {
    for (json const& c : table.at("encodings")) {
        vlm::time const t(c[0], static_cast<vlm::type_time>(c[1]));
        EXPECT_EQ(std::tuple(t.valid, t.filetime_ticks, t.unix_seconds),
                  std::tuple(c[2] ? 1u : 0u, c[3].get<std::uint64_t>(), c[4].get<std::uint64_t>())) << c;
    }
    EXPECT_NEAR(static_cast<double>(vlm::time_now().unix_seconds), static_cast<double>(std::time(nullptr)), 2.0);
}

TEST(vlm_time, fields_to_ticks_with_its_year_2000_slip) {
    for (json const& c : table.at("fields")) {
        vlm::_windows_systemtime const f{c[0], c[1], 0, c[2], c[3], 34, 56, 789};
        std::uint64_t ticks = 1;
        bool const ok = vlm::fields_to_ticks(f, ticks);
        EXPECT_EQ(std::pair(ok, ticks), std::pair(true, c[4].get<std::uint64_t>())) << c;
    }
    // The first instant a FILETIME holds, and the second before it.
    std::uint64_t ticks = 1;
    EXPECT_TRUE(vlm::fields_to_ticks({1601, 1, 0, 1, 0, 0, 0, 0}, ticks) && ticks == 0);
    EXPECT_FALSE(vlm::fields_to_ticks({1600, 12, 0, 31, 23, 59, 59, 0}, ticks));
}

} // namespace
