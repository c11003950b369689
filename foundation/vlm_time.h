#pragma once
// One value class for every timestamp: a raw number and its encoding in, every
// form a writer may want out, and a single `valid` flag that decides whether
// the time may be printed at all. Printing is always of the UTC fields.
#include <array>
#include <cstdint>
#include <ctime>

namespace vlm {

// Encodings of raw time values (single bits).
enum type_time : std::uint32_t {
    filetime = 1,          // 100 ns ticks since 1601
    chrome = 2,            // microseconds since 1601
    firefox3 = 4,          // signed microseconds since 1970
    unix_time = 8,         // signed seconds since 1970
    safari_time = 0x40000, // seconds (or nanoseconds) since 2001
};

char const* type_time_label(type_time type);

constexpr std::uint64_t unix_epoch_ticks = 116444736000000000ULL; // 1970-01-01 as FILETIME
constexpr std::uint64_t ticks_per_second = 10000000ULL;

// Calendar fields in the order of the Windows SYSTEMTIME record, then three
// counters that each restate the whole fraction of the second.
struct _windows_systemtime {
    std::uint16_t year = 0;
    std::uint16_t month = 0;
    std::uint16_t day_of_week = 0;
    std::uint16_t day = 0;
    std::uint16_t hour = 0;
    std::uint16_t minute = 0;
    std::uint16_t second = 0;
    std::uint16_t millisecond = 0;
    std::uint64_t microsecond = 0;
    std::uint64_t nanosecond = 0;
    std::uint64_t picosecond = 0;
};

struct dos_stamp {
    std::uint16_t date = 0;
    std::uint16_t time = 0;
};

struct time {
    std::uint64_t unix_seconds = 0;
    std::uint64_t filetime_ticks = 0;
    std::uint64_t converted_ticks = 0;
    dos_stamp dos{};
    std::tm local_tm{};
    _windows_systemtime utc_fields{};
    std::uint32_t valid = 0;

    time() = default;
    time(std::uint64_t value, type_time type);
};

// The present moment, to the microsecond, as a filetime value.
time time_now();

bool ticks_to_unix(std::uint64_t ticks, std::uint64_t& out);
bool ticks_to_fields(std::uint64_t ticks, _windows_systemtime& out);
bool unix_to_local_tm(std::int64_t seconds, std::tm& out);
bool fields_to_dos(std::uint64_t ticks, dos_stamp& out);
bool fields_to_ticks(_windows_systemtime const& fields, std::uint64_t& out);
std::int32_t local_utc_offset();

// The writers' batch form for the four times of a record: each non-zero value
// to unix seconds on its own, `type` then reads unix_time.
void times_to_unix(std::array<std::uint64_t, 4>& values, type_time& type);

} // namespace vlm
