#pragma once
// Narrow text is a byte string, UTF-8 as far as anyone knows; wide text holds
// one 32-bit element per character (or per UTF-16 unit, for text read from a
// Prefetch file). No locale is ever set: case rules touch ASCII letters only.
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

std::string wide_to_utf8(std::wstring const& wide);
// UTF-16LE bytes (a trailing odd byte ignored) to the text that wide_to_utf8
// makes of the same units widened one by one.
std::string utf16le_to_utf8(std::span<std::uint8_t const> bytes);
bool utf8_into_wide(std::wstring& wide_result, std::string const& narrow);
std::wstring utf8_to_wide(std::string const& narrow);

std::string& to_lower_narrow(std::string& text);
void to_upper_narrow(std::string& text);
std::wstring& to_lower_wide(std::wstring& text);
bool equal_ignore_case(std::string& a, std::string& b);
void substitute_char(std::string& text, char from, char to, bool ignore_case);
void substitute_char_wide(std::wstring& text, wchar_t from, wchar_t to, bool ignore_case);
bool trim_blanks(std::string& text);
bool trim_wide(std::wstring& text);
std::size_t chomp_line_end(std::string& text);
void strip_trailing_slashes(std::wstring& text);
bool split_wide(std::wstring const& text, wchar_t separator, std::vector<std::wstring>& items, bool trim,
                bool keep_empty);
std::string& replace_all(std::string& result, std::string const& text, std::string const& from,
                         std::string const& to);
std::string guid_text(std::uint8_t const (&guid)[16]);
bool locale_name_known(std::string const& name);
