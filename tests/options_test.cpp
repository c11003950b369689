// The option pass on a real context: which words are consumed, which fields they set, and which of two options wins.
#include <gtest/gtest.h>

#include <tuple>

#include "driver/kito_user_context.h"
#include "support/test_table.h"

namespace {

// Runs the pass over the words after the program name; gives back what it wrote to stderr.
std::string pass(kito_user_context& context, arg_list& list, std::vector<std::string> const& words, bool ok = true)
{
    list = {"/bin/kito"};
    list.insert(list.end(), words.begin(), words.end());
    testing::internal::CaptureStderr();
    EXPECT_EQ(parse_tool_options(context, list, "ver: 1.39"), ok);
    return testing::internal::GetCapturedStderr();
}

std::string forms(kito_user_context const& c)
{
    return std::string(c.m_fmt_csv ? "csv " : "") + (c.m_fmt_timeline ? "l2t " : "") + (c.m_fmt_bodyfile ? "body " : "") +
           (c.m_verbose ? "verbose" : "");
}

TEST(options, format_wins_and_leftover_words)
{
    for (json const& row : test_rows("options", "forms")) {
        auto const [words, forms_set, sep, left_words] = row.get<std::tuple<std::vector<std::string>, std::string, std::string, arg_list>>();
        kito_user_context c;
        arg_list list;
        pass(c, list, words);
        arg_list const left(list.begin() + (list.empty() ? 0 : 1), list.end());
        EXPECT_EQ(std::tuple(forms(c), c.m_separator, left), std::tuple(forms_set, sep, left_words)) << row[0];
    }
}

TEST(options, time_range_bounds)
{
    auto const bound = [](std::uint32_t u) {
        return u == 0 ? time_bound{} : time_bound{true, u == UINT32_MAX ? UINT64_MAX : u * 10000000ULL + 116444736000000000ULL, u};
    };
    auto const facts = [](time_bound const& b) { return std::tuple(b.valid, b.filetime, b.unix_seconds); };
    for (json const& row : test_rows("options", "times")) {
        auto const [words, ok, start, stop, message] =
            row.get<std::tuple<std::vector<std::string>, bool, std::uint32_t, std::uint32_t, std::string>>();
        kito_user_context c;
        arg_list list;
        EXPECT_EQ(pass(c, list, words, ok), message) << words[1];
        if (!ok) continue;
        EXPECT_EQ(std::pair(facts(c.m_start_bound), facts(c.m_stop_bound)), std::pair(facts(bound(start)), facts(bound(stop))));
    }
}

TEST(options, filters_paths_and_signatures)
{
    kito_user_context c;
    arg_list list;
    pass(c, list, {"-csv", "-filter_sig", "4d 41 4d|0", "-filter", "abc*|*.PF", "-filter", "x", "-filter_path", "C:\\Win",
                   "-filter_sig", "4D 1ff,0x10", "-filter_sig", "zz|5", "-filter_sig", "|3"});
    EXPECT_EQ(list, arg_list{"/bin/kito"});
    auto const& f = c.m_filter_list;
    ASSERT_EQ(f.size(), 6u);
    EXPECT_EQ(std::tuple(f[0].text, f[1].core, f[2].text), std::tuple(L"abc*", L".pf", L"x"));
    // The path goes to the name filters only; a signature keeps its own bytes and offset.
    std::pair<std::vector<std::uint8_t>, std::uint64_t> const sigs[] = {{{0x4d, 0x41, 0x4d}, 0}, {{0x4d, 0xff}, 16}, {{0}, 5}};
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(std::tuple(f[i].filter_path, f[i].filter_path_length), std::tuple(L"c:\\win", 6u)) << i;
        EXPECT_EQ(std::tuple(f[3 + i].signature, f[3 + i].signature_offset, f[3 + i].filter_path),
                  std::tuple(sigs[i].first, sigs[i].second, L"")) << i;
    }
}

} // namespace
