#include "foundation/number_text.h"

#include <gtest/gtest.h>

#include <tuple>
#include <vector>

namespace {

template <class T, class Parse> void check_numbers(Parse parse, std::vector<std::tuple<char const*, bool, T>> const& rows)
{
    for (auto const& [text, ok, want] : rows) {
        T value = 99;
        EXPECT_EQ(std::tuple(parse(text, value), value), std::tuple(ok, want)) << text;
    }
}

TEST(number_text, parses_every_notation_within_its_limits)
{
    // Decimal needs a digit or sign as the very first byte, blank or not; 32 bits wrap a sign, 64 bits refuse it.
    check_numbers<std::uint32_t>(parse_u32_text, {
        {"255", true, 255}, {"xff", true, 255}, {"0XFF", true, 255}, {"o10", true, 8}, {"'A'", true, 65},
        {"12 ", true, 12}, {"\t0x10\r\n", true, 16}, {" 12", false, 0}, {"-1", true, 4294967295u},
        {"4294967296", false, 0}, {"0x", false, 0}, {"12abc", false, 0}, {"'ab'", false, 0}, {"", false, 0}});
    check_numbers<std::uint64_t>(parse_u64_text, {
        {"18446744073709551615", true, UINT64_MAX}, {"18446744073709551616", false, 0}, {"0xffffffffffffffff", true, UINT64_MAX},
        {"0x1ffffffffffffffff", false, 0},
        {"XFF", true, 255}, {"o777", true, 511}, {" \t42", true, 42}, {"42 ", false, 0}, {"4 2", false, 0},
        {"+5", false, 0}, {"  ", false, 0}, {"00000000000000000001", true, 1}, {"000000000000000000001", false, 0},
        {"o0000000000000000000001", true, 1}, {"o00000000000000000000001", false, 0}});
}

} // namespace
