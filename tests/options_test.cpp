// The option pass on a real context: which words are consumed, which fields they set, and which of two options wins.
#include <gtest/gtest.h>

#include <tuple>

#include "driver/kito_user_context.h"

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
    struct row { std::vector<std::string> words; char const* forms; std::string sep; arg_list left; } const rows[] = {
        {{"a.pf"}, "verbose", " | ", {"a.pf"}}, {{"a.pf", "-CSV"}, "csv ", ",", {"a.pf"}},
        {{"a.pf", "-csv", "-longform"}, "verbose", ",", {"a.pf"}}, {{"a.pf", "-xml"}, "verbose", "", {"a.pf"}},
        // Only -pipe and -enumdir together, without -v, escape the forced long form.
        {{"-pipe", "-enumdir", "d"}, "csv ", " | ", {}}, {{"-pipe", "-enumdir", "d", "-v"}, "verbose", " | ", {}},
        {{"a.pf", "-csv=1"}, "verbose", " | ", {"a.pf", "-csv=1"}}, {{"a.pf", "-hostname"}, "csv ", " | ", {"a.pf"}},
        {{"a.pf", "-bodyfile", "-csv"}, "body ", "|", {"a.pf"}}, {{"a.pf", "-csvl2t"}, "l2t ", ",", {"a.pf"}},
        {{"a.pf", "-csv", "-csv_separator", "tab"}, "csv ", "\t", {"a.pf"}},
        {{"a.pf", "-csv", "-csv_separator", " ; ", "-no_whitespace"}, "csv ", ";", {"a.pf"}},
        {{"a.pf", "-csv", "-filter_path", "x"}, "csv ", ",", {"a.pf", "-filter_path", "x"}},
    };
    for (row const& r : rows) {
        kito_user_context c;
        arg_list list;
        pass(c, list, r.words);
        arg_list const left(list.begin() + (list.empty() ? 0 : 1), list.end());
        EXPECT_EQ(std::tuple(forms(c), c.m_separator, left), std::tuple(r.forms, r.sep, r.left)) << testing::PrintToString(r.words);
    }
}

TEST(options, time_range_bounds)
{
    auto const bound = [](std::uint32_t u) {
        return u == 0 ? time_bound{} : time_bound{true, u == UINT32_MAX ? UINT64_MAX : u * 10000000ULL + 116444736000000000ULL, u};
    };
    // Bounds by their unix seconds: 0 for none, UINT32_MAX for the open end.
    struct row { std::vector<std::string> words; bool ok; std::uint32_t start, stop; char const* message; } const rows[] = {
        {{"-cmd_start_time", "2014-06-01"}, true, 1401580800, UINT32_MAX, ""},
        {{"-cmd_start_time", "2014/06/01 10:20:30"}, true, 1401580800 + 37230, UINT32_MAX, ""},
        {{"-cmd_stop_time", "2014-06-02"}, true, 0, 1401753599, ""},
        {{"-cmd_start_time", "2014-06-01 00:00:00", "-cmd_stop_time", "2014-06-01 00:00:00"}, true, 1401580800, 1401580800, ""},
        {{"-cmd_start_time", "2014-06-02", "-cmd_stop_time", "2014-06-01"}, true, 1401667200, 0, "invalid stop time, ignoring\n"},
        {{"-cmd_start_time", "2014-13-01"}, true, 0, 0, "invalid start time, ignoring\n"},
        {{"-cmd_stop_time", "20140601"}, false, 0, 0, ""}};
    auto const facts = [](time_bound const& b) { return std::tuple(b.valid, b.filetime, b.unix_seconds); };
    for (row const& r : rows) {
        kito_user_context c;
        arg_list list;
        EXPECT_EQ(pass(c, list, r.words, r.ok), r.message) << r.words[1];
        if (!r.ok) continue;
        EXPECT_EQ(std::pair(facts(c.m_start_bound), facts(c.m_stop_bound)), std::pair(facts(bound(r.start)), facts(bound(r.stop))));
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
