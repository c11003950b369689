#include <gtest/gtest.h>

#include "foundation/vlm_string.h"

namespace {

TEST(utf8, wide_to_bytes_unit_by_unit_and_back_checking_structure_only) {
    // A UTF-16 pair widened unit by unit gives two three-byte forms; output stops beyond Unicode.
    struct { std::wstring wide; std::string bytes; } const encodes[] = {
        {{0x41, 0xE9, 0x20AC}, "\x41\xC3\xA9\xE2\x82\xAC"}, {{0xD83D, 0xDE00}, "\xED\xA0\xBD\xED\xB8\x80"},
        {{0x7FF, 0x800, 0x10FFFF}, "\xDF\xBF\xE0\xA0\x80\xF4\x8F\xBF\xBF"}, {{L'a', 0x110000, L'b'}, "a"},
        {{L'a', static_cast<wchar_t>(-1), L'b'}, "a"}, {{L'a', 0, L'b'}, std::string("a\0b", 3)},
    };
    for (auto const& r : encodes) EXPECT_EQ(wide_to_utf8(r.wide), r.bytes);
    // Decoding keeps the prefix before a fault.
    struct { std::string bytes; bool ok; std::wstring wide; } const decodes[] = {
        {"a\xFF", false, L"a"}, {std::string("\xC0\x80", 2), true, std::wstring(1, L'\0')},
        {"\xED\xA0\xBD", true, {0xD83D}}, {"\xF4\x90\x80\x80", true, {0x110000}}, {"ab\xE2\x82", false, L"ab"},
        {"a\xC3\x41", false, L"a"}, {"\xF8\x80\x80\x80\x80", false, L""}, {"", false, L""},
    };
    for (auto const& r : decodes) {
        std::wstring wide = L"stale";
        bool const ok = utf8_into_wide(wide, r.bytes);
        EXPECT_EQ(std::tuple(ok, wide, utf8_to_wide(r.bytes)), std::tuple(r.ok, r.wide, r.ok ? r.wide : L""))
            << r.bytes;
    }
}

// The file's UTF-16LE bytes give what wide_to_utf8 gives of the same units
// widened one by one: lone and paired surrogates as three-byte forms.
TEST(utf8, from_utf16le_bytes_as_from_widened_units) {
    struct { std::vector<std::uint8_t> bytes; std::string utf8; } const rows[] = {
        {{}, ""},
        {{0x41, 0x00, 0x7F, 0x00, 0x80, 0x00}, "A\x7F\xC2\x80"},
        {{0xFF, 0x07, 0x00, 0x08, 0xFF, 0xFF}, "\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF"},
        {{0x3D, 0xD8, 0x00, 0xDE}, "\xED\xA0\xBD\xED\xB8\x80"},
        {{0x00, 0xD8, 0x61, 0x00}, "\xED\xA0\x80" "a"},
        {{0x00, 0xDC}, "\xED\xB0\x80"},
        {{0x62, 0x00, 0x63}, "b"}, // a last odd byte is no unit
    };
    for (auto const& r : rows) {
        std::wstring widened;
        for (std::size_t i = 0; i + 1 < r.bytes.size(); i += 2) widened.push_back(static_cast<wchar_t>(r.bytes[i] | r.bytes[i + 1] << 8));
        EXPECT_EQ(utf16le_to_utf8(r.bytes), r.utf8) << r.utf8;
        EXPECT_EQ(wide_to_utf8(widened), r.utf8) << r.utf8;
    }
}

TEST(trim, wide_peels_spaces_then_tabs_then_line_ends) {
    struct { std::wstring in; bool result; std::wstring out; } const rows[] = {
        {L" \t x", true, L" x"}, {L"x\r\n", true, L"x\r"}, {L"x\n\r", true, L"x"}, {L"\t a \t", true, L" a "},
        {L"   ", false, L""},    {L"\t\t", false, L""},     {L"", false, L""},     {L"\r", true, L""},
    };
    for (auto const& r : rows) {
        std::wstring text = r.in;
        bool const result = trim_wide(text);
        EXPECT_EQ(std::pair(result, text), std::pair(r.result, r.out)) << wide_to_utf8(r.in);
    }
    std::string narrow = " \ta b\r\n", blank = " \t\r\n";
    EXPECT_TRUE(trim_blanks(narrow) && !trim_blanks(blank));
    EXPECT_EQ(narrow + blank, "a b");
}

TEST(small_helpers, fold_ascii_only_edge_cases_and_guids) {
    std::string narrow = "AB\xC4", text = "aAbA", line = "x\r\n\r";
    std::wstring wide = {L'A', 0xC4, L'Z'}, path = L"a/\\/";
    substitute_char(text, 'a', 'x', false);
    substitute_char(text, 'a', 'y', true);
    EXPECT_EQ(text + to_lower_narrow(narrow), "xybyab\xC4");
    EXPECT_EQ(to_lower_wide(wide), (std::wstring{L'a', 0xC4, L'z'}));
    EXPECT_EQ(chomp_line_end(line), 3u);
    strip_trailing_slashes(path);
    EXPECT_EQ(line + wide_to_utf8(path), "xa");
    std::uint8_t const guid[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
    EXPECT_EQ(guid_text(guid), "03020100-0504-0706-0809-0a0b0c0d0e0f");
}

} // namespace
