#include <gtest/gtest.h>

#include "foundation/vlm_string.h"
#include "support/test_table.h"

namespace {

json const table = test_table("strings");
// Units as numbers, or ASCII text.
std::wstring wide_of(json const& units)
{
    std::wstring wide;
    if (units.is_string()) for (char c : units.get_ref<std::string const&>()) wide.push_back(c);
    else for (int unit : units) wide.push_back(static_cast<wchar_t>(unit));
    return wide;
}

TEST(utf8, wide_to_bytes_unit_by_unit_and_back_checking_structure_only) {
    for (json const& r : table.at("encodes")) EXPECT_EQ(wide_to_utf8(wide_of(r[0])), bytes_of(r[1])) << r;
    for (json const& r : table.at("decodes")) {
        std::wstring wide = L"stale";
        std::string const bytes = bytes_of(r[0]);
        bool const ok = utf8_into_wide(wide, bytes);
        EXPECT_EQ(std::tuple(ok, wide, utf8_to_wide(bytes)), std::tuple(r[1], wide_of(r[2]), r[1] ? wide_of(r[2]) : L"")) << r;
    }
}

// The file's UTF-16LE bytes give what wide_to_utf8 gives of the same units
// widened one by one: lone and paired surrogates as three-byte forms.
TEST(utf8, from_utf16le_bytes_as_from_widened_units) {
    for (json const& r : table.at("utf16le")) {
        auto const bytes = r[0].get<std::vector<std::uint8_t>>();
        std::wstring widened;
        for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) widened.push_back(static_cast<wchar_t>(bytes[i] | bytes[i + 1] << 8));
        EXPECT_EQ(utf16le_to_utf8(bytes), bytes_of(r[1])) << r;
        EXPECT_EQ(wide_to_utf8(widened), bytes_of(r[1])) << r;
    }
}

// ASCII goes four units at a time: one unit above ASCII at any place of a
// longer text, in any lane of a word or in the tail, sends the whole text the
// long way; the text lands behind what the string held.
TEST(utf8, from_utf16le_bytes_any_unit_above_ascii_anywhere) {
    for (std::uint16_t const odd : {0x80, 0x100, 0x7F00, 0xD800, 0xFFFF})
        for (std::size_t at = 0; at <= 10; ++at) {
            std::vector<std::uint8_t> bytes;
            std::wstring widened;
            for (std::size_t i = 0; i < 10; ++i) {
                std::uint16_t const unit = i == at ? odd : static_cast<std::uint16_t>(0x21 + 9 * i);
                bytes.insert(bytes.end(), {static_cast<std::uint8_t>(unit), static_cast<std::uint8_t>(unit >> 8)});
                widened.push_back(static_cast<wchar_t>(unit));
            }
            std::string text = "held:";
            append_utf16le_as_utf8(text, bytes);
            EXPECT_EQ(text, "held:" + wide_to_utf8(widened)) << odd << " at " << at;
        }
}

TEST(trim, wide_peels_spaces_then_tabs_then_line_ends) {
    for (json const& r : table.at("trims")) {
        std::wstring text = wide_of(r[0]);
        bool const result = trim_wide(text);
        EXPECT_EQ(std::pair(result, text), std::pair(r[1].get<bool>(), wide_of(r[2]))) << r;
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
