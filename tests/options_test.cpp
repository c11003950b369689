// The option pass on a real context: which words are consumed, which fields
// they set, and which of two options wins.
#include <gtest/gtest.h>

#include "driver/kito_user_context.h"

namespace {

constexpr std::uint64_t filetime_of_unix(std::uint64_t seconds) { return seconds * 10000000ULL + 116444736000000000ULL; }

TEST(number_text, parses_every_notation)
{
    struct row {
        char const* text;
        bool ok;
        std::uint32_t value;
    } const rows[] = {
        {"0xff", true, 255}, {"xff", true, 255}, {"255", true, 255}, {"0XFF", true, 255}, {"o10", true, 8},
        {"'A'", true, 65}, {"abc", false, 0}, {"", false, 0}, {"12 ", true, 12}, {" 0x10 ", true, 16},
        // Decimal needs a digit or sign as the very first byte, blank or not.
        {" 12", false, 0}, {"+7", true, 7}, {"-1", true, 4294967295u}, {"4294967295", true, 4294967295u},
        {"4294967296", false, 0}, {"0x", false, 0}, {"12abc", false, 0}, {"'ab'", false, 0},
    };
    for (row const& r : rows) {
        SCOPED_TRACE(r.text);
        std::uint32_t value = 99;
        EXPECT_EQ(parse_u32_text(r.text, value), r.ok);
        EXPECT_EQ(value, r.value);
    }
}

TEST(number_text, parses_64_bit_values_within_their_limits)
{
    struct row {
        char const* text;
        bool ok;
        std::uint64_t value;
    } const rows[] = {
        {"18446744073709551615", true, UINT64_MAX}, {"18446744073709551616", false, 0},
        {"0xffffffffffffffff", true, UINT64_MAX},   {"0x1ffffffffffffffff", false, 0},
        {"x10", true, 16},  {"o777", true, 511},    {"  42", true, 42}, {"42 ", false, 0},
        {"4 2", false, 0},  {"", false, 0},          {"abc", false, 0},  {"+5", false, 0},
    };
    for (row const& r : rows) {
        SCOPED_TRACE(r.text);
        std::uint64_t value = 99;
        EXPECT_EQ(parse_u64_text(r.text, value), r.ok);
        EXPECT_EQ(value, r.value);
    }
}

TEST(options, separator_setup_picks_the_substitution_pair)
{
    struct row {
        char const* text;
        bool flag;
        char const* separator;
        char from, to;
    } const rows[] = {
        {",", false, ",", ',', ' '}, {",", true, ",", ',', ';'},      {" | ", false, " | ", '|', ';'},
        {"a|b,c", false, "a|b,c", '|', ';'}, {"TAB", false, "\t", 0, 0}, {"\\t", false, "\t", 0, 0},
        {";", false, ";", 0, 0},     {"Tab2", false, "Tab2", 0, 0},  {"", false, "", 0, 0},
    };
    for (row const& r : rows) {
        SCOPED_TRACE(r.text);
        kito_user_context context;
        separator_setup(context, r.text, r.flag);
        EXPECT_EQ(context.m_separator, r.separator);
        EXPECT_EQ(context.m_value_substitute_from, r.from);
        EXPECT_EQ(context.m_value_substitute_to, r.to);
    }
}

// The words after the program name, and what the pass leaves of them.
struct pass_case {
    std::vector<std::string> words;
    bool csv, timeline, bodyfile, verbose;
    std::string separator;
    std::vector<std::string> left;
};

class option_pass : public testing::TestWithParam<pass_case> {};

TEST_P(option_pass, sets_format_and_leaves_the_rest)
{
    pass_case const& c = GetParam();
    arg_list list{"/bin/kito"};
    list.insert(list.end(), c.words.begin(), c.words.end());
    kito_user_context context;
    ASSERT_TRUE(parse_tool_options(context, list, "ver: 1.39"));
    EXPECT_EQ(context.m_fmt_csv, c.csv);
    EXPECT_EQ(context.m_fmt_timeline, c.timeline);
    EXPECT_EQ(context.m_fmt_bodyfile, c.bodyfile);
    EXPECT_EQ(context.m_verbose, c.verbose);
    EXPECT_EQ(context.m_separator, c.separator);
    arg_list expected{"/bin/kito"};
    expected.insert(expected.end(), c.left.begin(), c.left.end());
    EXPECT_EQ(list, expected);
    EXPECT_EQ(context.m_version_label, "PREFETCH");
    EXPECT_EQ(context.m_program_name, "kito");
}

INSTANTIATE_TEST_SUITE_P(
    forced_long_form, option_pass,
    testing::Values(
        pass_case{{"a.pf"}, false, false, false, true, " | ", {"a.pf"}},
        pass_case{{"a.pf", "-csv"}, true, false, false, false, ",", {"a.pf"}},
        pass_case{{"a.pf", "-CSV"}, true, false, false, false, ",", {"a.pf"}},
        pass_case{{"a.pf", "-csv", "-longform"}, false, false, false, true, ",", {"a.pf"}},
        pass_case{{"a.pf", "-xml"}, false, false, false, true, "", {"a.pf"}},
        pass_case{{"-pipe", "-enumdir", "d"}, true, false, false, false, " | ", {}},
        pass_case{{"-pipe", "-enumdir", "d", "-v"}, false, false, false, true, " | ", {}},
        pass_case{{"-pipe"}, false, false, false, true, " | ", {}},
        pass_case{{"a.pf", "-csv=1"}, false, false, false, true, " | ", {"a.pf", "-csv=1"}},
        pass_case{{"a.pf", "-verbose", "-v"}, false, false, false, true, " | ", {"a.pf", "-v"}},
        pass_case{{"a.pf", "-csv", "-csv"}, true, false, false, false, ",", {"a.pf", "-csv"}},
        // A valued option written last takes the forced word as its value.
        pass_case{{"a.pf", "-hostname"}, true, false, false, false, " | ", {"a.pf"}}));

INSTANTIATE_TEST_SUITE_P(
    format_interplay, option_pass,
    testing::Values(
        pass_case{{"a.pf", "-bodyfile", "-csv"}, false, false, true, false, "|", {"a.pf"}},
        pass_case{{"a.pf", "-csvl2t", "-bodyfile"}, false, false, true, false, "|", {"a.pf"}},
        pass_case{{"a.pf", "-csvl2t"}, false, true, false, false, ",", {"a.pf"}},
        pass_case{{"a.pf", "-csv", "-csv_separator", "tab"}, true, false, false, false, "\t", {"a.pf"}},
        pass_case{{"a.pf", "-csv", "-csv_separator", " ; ", "-no_whitespace"}, true, false, false, false, ";",
                  {"a.pf"}},
        pass_case{{"a.pf", "-csv", "-l2"}, true, false, false, false, ",", {"a.pf", "-l2"}},
        pass_case{{"a.pf", "-csv", "-filter_path", "x"}, true, false, false, false, ",",
                  {"a.pf", "-filter_path", "x"}}));

TEST(options, padding_follows_pair_datetime_and_no_whitespace)
{
    struct row {
        std::vector<std::string> words;
        bool no_padding, blank_before_time;
    } const rows[] = {{{"-csv"}, true, true}, {{"-csv", "-pair_datetime"}, false, true},
                      {{"-csv", "-no_whitespace"}, true, false}, {{"-csvgen"}, true, true}};
    for (row const& r : rows) {
        SCOPED_TRACE(r.words.back());
        arg_list list{"kito"};
        list.insert(list.end(), r.words.begin(), r.words.end());
        kito_user_context context;
        ASSERT_TRUE(parse_tool_options(context, list, "ver: 1.39"));
        EXPECT_EQ(context.m_no_padding, r.no_padding);
        EXPECT_EQ(context.m_blank_before_time, r.blank_before_time);
    }
}

TEST(options, date_and_time_formats_are_checked_by_length)
{
    struct row {
        char const* option;
        char const* value;
        char const* stored;
    } const rows[] = {
        {"-dateformat", "yyyy/mm/dd", "yyyy/mm/dd"}, {"-dateformat", "MM/DD/YY", "mm/dd/yy"},
        {"-dateformat", "yy-m-d", "yyyy-mm-dd"},     {"-timeformat", "hh:mm:ss", "hh:mm:ss"},
        {"-timeformat", "HH:MM:SS.XXXXXXX", "hh:mm:ss.xxxxxxx"}, {"-timeformat", "hhmmss.xxx", "hh:mm:ss.xxx"},
        {"-timeformat", "hh:mm:ss.x", "hh:mm:ss.xxx"}, {"-timeformat", "hhmmssxx", "hh:mm:ss.xxx"},
    };
    for (row const& r : rows) {
        SCOPED_TRACE(r.value);
        arg_list list{"kito", "a", "-csv", r.option, r.value};
        kito_user_context context;
        testing::internal::CaptureStderr();
        ASSERT_TRUE(parse_tool_options(context, list, "ver: 1.39"));
        std::string const err = testing::internal::GetCapturedStderr();
        bool const date = std::string(r.option) == "-dateformat";
        EXPECT_EQ(date ? context.m_date_format : context.m_time_format, r.stored);
        bool const refused = std::string(r.stored) == (date ? "yyyy-mm-dd" : "hh:mm:ss.xxx");
        EXPECT_EQ(err, refused ? "invalid " + std::string(r.value) + ", using default format\n" : "");
    }
}

TEST(options, time_range_bounds)
{
    std::uint64_t const june1 = filetime_of_unix(1401580800);
    struct row {
        std::vector<std::string> words;
        bool ok;
        time_bound start, stop;
        char const* message;
    } const rows[] = {
        {{"-cmd_start_time", "2014-06-01"}, true, {true, june1, 1401580800}, {true, UINT64_MAX, UINT32_MAX}, ""},
        {{"-cmd_start_time", "2014/06/01 10:20:30"}, true,
         {true, june1 + 37230 * 10000000ULL, 1401580800 + 37230}, {true, UINT64_MAX, UINT32_MAX}, ""},
        {{"-cmd_stop_time", "2014-06-02"}, true, {}, {true, filetime_of_unix(1401753599), 1401753599}, ""},
        {{"-cmd_start_time", "2014-06-01 00:00:00", "-cmd_stop_time", "2014-06-01 00:00:00"}, true,
         {true, june1, 1401580800}, {true, june1, 1401580800}, ""},
        {{"-cmd_start_time", "2014-06-02", "-cmd_stop_time", "2014-06-01"}, true,
         {true, june1 + 864000000000ULL, 1401667200}, {}, "invalid stop time, ignoring\n"},
        {{"-cmd_start_time", "2014-13-01"}, true, {}, {}, "invalid start time, ignoring\n"},
        {{"-cmd_start_time", "06.01.2014"}, false, {}, {}, ""},
        {{"-cmd_stop_time", "20140601"}, false, {}, {}, ""},
    };
    for (row const& r : rows) {
        SCOPED_TRACE(r.words[1]);
        arg_list list{"kito", "-csv"};
        list.insert(list.end(), r.words.begin(), r.words.end());
        kito_user_context context;
        testing::internal::CaptureStderr();
        EXPECT_EQ(parse_tool_options(context, list, "ver: 1.39"), r.ok);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), r.message);
        if (!r.ok) continue;
        for (auto [got, want] : {std::pair{context.m_start_bound, r.start}, std::pair{context.m_stop_bound, r.stop}}) {
            EXPECT_EQ(got.valid, want.valid);
            EXPECT_EQ(got.filetime, want.filetime);
            EXPECT_EQ(got.unix_seconds, want.unix_seconds);
        }
    }
}

TEST(options, filters_paths_and_signatures)
{
    arg_list list{"kito", "-csv", "-filter_sig", "4d 41 4d|0", "-filter", "abc*|*.PF", "-filter", "x",
                  "-filter_path", "C:\\Win", "-filter_sig", "4D 1ff,0x10", "-filter_sig", "zz|5", "-filter_sig", "|3"};
    kito_user_context context;
    ASSERT_TRUE(parse_tool_options(context, list, "ver: 1.39"));
    EXPECT_EQ(list, arg_list{"kito"});
    auto const& filters = context.m_filter_list;
    ASSERT_EQ(filters.size(), 6u);
    EXPECT_EQ(filters[0].text, L"abc*");
    EXPECT_EQ(filters[1].core, L".pf");
    EXPECT_EQ(filters[2].text, L"x");
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(filters[i].filter_path, L"c:\\win");
        EXPECT_EQ(filters[i].filter_path_length, 6u);
    }
    struct sig {
        std::vector<std::uint8_t> bytes;
        std::uint64_t offset;
    } const sigs[] = {{{0x4d, 0x41, 0x4d}, 0}, {{0x4d, 0xff}, 16}, {{0x00}, 5}};
    for (int i = 0; i < 3; ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(filters[3 + i].signature, sigs[i].bytes);
        EXPECT_EQ(filters[3 + i].signature_offset, sigs[i].offset);
        EXPECT_TRUE(filters[3 + i].filter_path.empty());
    }
}

} // namespace
