#include <gtest/gtest.h>

#include "foundation/vlm_string.h"

namespace {

TEST(wide_to_utf8, encodes_by_range_and_stops_beyond_unicode) {
    struct row {
        std::wstring wide;
        std::string bytes;
    } const rows[] = {
        {{0x41, 0xE9, 0x20AC}, "\x41\xC3\xA9\xE2\x82\xAC"},
        // A UTF-16 pair widened unit by unit: two three-byte forms, not one four-byte form.
        {{0xD83D, 0xDE00}, "\xED\xA0\xBD\xED\xB8\x80"},
        {{0x7FF, 0x800, 0x10FFFF}, "\xDF\xBF\xE0\xA0\x80\xF4\x8F\xBF\xBF"},
        {{L'a', 0x110000, L'b'}, "a"},
        {{L'a', static_cast<wchar_t>(-1), L'b'}, "a"},
        {{L'a', 0, L'b'}, std::string("a\0b", 3)},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.bytes);
        EXPECT_EQ(wide_to_utf8(r.wide), r.bytes);
    }
}

TEST(utf8_into_wide, checks_structure_only_and_keeps_the_prefix) {
    struct row {
        std::string bytes;
        bool ok;
        std::wstring wide;
    } const rows[] = {
        {"a\xFF", false, L"a"},          {std::string("\xC0\x80", 2), true, std::wstring(1, L'\0')},
        {"\xED\xA0\xBD", true, {0xD83D}}, {"\xF4\x90\x80\x80", true, {0x110000}},
        {"ab\xE2\x82", false, L"ab"},    {"a\xC3\x41", false, L"a"},
        {"\xF8\x80\x80\x80\x80", false, L""}, {"", false, L""},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(r.bytes);
        std::wstring wide = L"stale";
        EXPECT_EQ(utf8_into_wide(wide, r.bytes), r.ok);
        EXPECT_EQ(wide, r.wide);
        EXPECT_EQ(utf8_to_wide(r.bytes), r.ok ? r.wide : std::wstring());
    }
}

TEST(trim, wide_peels_spaces_then_tabs_then_line_ends) {
    struct row {
        std::wstring in;
        bool result;
        std::wstring out;
    } const rows[] = {
        {L" \t x", true, L" x"}, {L"x\r\n", true, L"x\r"}, {L"x\n\r", true, L"x"}, {L"\t a \t", true, L" a "},
        {L"   ", false, L""},    {L"\t\t", false, L""},     {L"", false, L""},     {L"\r", true, L""},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(wide_to_utf8(r.in));
        std::wstring text = r.in;
        EXPECT_EQ(trim_wide(text), r.result);
        EXPECT_EQ(text, r.out);
    }
    std::string narrow = " \ta b\r\n";
    EXPECT_TRUE(trim_blanks(narrow));
    EXPECT_EQ(narrow, "a b");
    narrow = " \t\r\n";
    EXPECT_FALSE(trim_blanks(narrow));
    EXPECT_EQ(narrow, "");
}

TEST(split_wide, follows_the_separator_and_count_rules) {
    using items = std::vector<std::wstring>;
    struct row {
        std::wstring text;
        bool trim, keep_empty, result;
        items out;
    } const rows[] = {
        {L"|a| |b|", true, false, true, {L"a", L"b"}},   {L"a||b", false, true, true, {L"a", L"", L"b"}},
        {L"a|", false, true, true, {L"a", L""}},         {L"|a", false, true, true, {L"a"}},
        {L" a | b ", false, false, true, {L" a ", L" b "}}, {std::wstring(L"a\0|b", 4), false, false, true, {L"a"}},
        {L"", true, true, false, {}},
    };
    for (auto const& r : rows) {
        SCOPED_TRACE(wide_to_utf8(r.text));
        items out = {L"stale"};
        EXPECT_EQ(split_wide(r.text, L'|', out, r.trim, r.keep_empty), r.result);
        EXPECT_EQ(out, r.out);
    }
}

TEST(case_rules, fold_ascii_only_and_fold_in_place) {
    std::string a = "-CSV", b = "-csv", longer = "-CSVX";
    EXPECT_TRUE(equal_ignore_case(a, b));
    EXPECT_EQ(a, "-csv");
    EXPECT_FALSE(equal_ignore_case(longer, b));
    EXPECT_EQ(longer, "-CSVX");

    std::wstring wide = {L'A', 0xC4, L'z'};
    EXPECT_EQ(to_lower_wide(wide), (std::wstring{L'a', 0xC4, L'z'}));
    std::string narrow = "AB\xC4";
    EXPECT_EQ(to_lower_narrow(narrow), "ab\xC4");

    std::string text = "aAbA";
    substitute_char(text, 'a', 'x', false);
    EXPECT_EQ(text, "xAbA");
    substitute_char(text, 'a', 'y', true);
    EXPECT_EQ(text, "xyby");
}

TEST(small_helpers, edge_cases) {
    std::string result = "stale";
    EXPECT_EQ(replace_all(result, "abc", "", "x"), "");
    EXPECT_EQ(replace_all(result, "aaaaa", "aa", "b"), "bba");
    EXPECT_EQ(replace_all(result, "a-b-c", "-", ""), "abc");

    std::string line = "x\r\n\r";
    EXPECT_EQ(chomp_line_end(line), 3u);
    EXPECT_EQ(line, "x");

    std::wstring path = L"a/\\/";
    strip_trailing_slashes(path);
    EXPECT_EQ(path, L"a");

    std::uint8_t const guid[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 0xAB};
    EXPECT_EQ(guid_text(guid), "03020100-0504-0706-0809-0a0b0c0d0eab");

    EXPECT_TRUE(locale_name_known("C"));
    EXPECT_FALSE(locale_name_known("no_such_locale.kito"));
}

} // namespace
