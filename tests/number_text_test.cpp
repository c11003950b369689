#include "foundation/number_text.h"

#include <gtest/gtest.h>

#include <tuple>

#include "support/test_table.h"

namespace {

template <class T, class Parse> void check_numbers(Parse parse, json const& rows)
{
    for (json const& r : rows) {
        T value = 99;
        EXPECT_EQ(std::tuple(parse(r[0].get<std::string>(), value), value), std::tuple(r[1].get<bool>(), r[2].get<T>())) << r;
    }
}

TEST(number_text, parses_every_notation_within_its_limits)
{
    json const table = test_table("number_text");
    check_numbers<std::uint32_t>(parse_u32_text, table.at("u32"));
    check_numbers<std::uint64_t>(parse_u64_text, table.at("u64"));
}

} // namespace
