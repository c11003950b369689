#pragma once
// Narrow text is a byte string, UTF-8 as far as anyone knows; wide text holds
// one 32-bit element per character (or per UTF-16 unit, for text read from a
// Prefetch file). No locale is ever set: case rules touch ASCII letters only.
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// Gives UTF-8 of each element by its range alone (a UTF-16 surrogate becomes
// its own three-byte form). Stops at an element above 0x10FFFF, keeping what
// came before; gives "" if memory runs out.
std::string wide_to_utf8(std::wstring const& wide);
// UTF-16LE bytes (a trailing odd byte ignored) to the text that wide_to_utf8
// makes of the same units widened one by one.
std::string utf16le_to_utf8(std::span<std::uint8_t const> bytes);
// The same text put on the end of `out`; nothing is put there if memory runs out.
void append_utf16le_as_utf8(std::string& out, std::span<std::uint8_t const> bytes);
// Needs UTF-8 whose structure holds (values are not checked); gives one
// element per character. Fails on empty or broken text, keeping the elements
// finished before the fault.
bool utf8_into_wide(std::wstring& wide_result, std::string_view narrow);
// As utf8_into_wide, but gives "" on any failure.
std::wstring utf8_to_wide(std::string_view narrow);

// A to Z only, in place; the lower-casing forms give back their argument.
std::string& to_lower_narrow(std::string& text);
void to_upper_narrow(std::string& text);
std::wstring& to_lower_wide(std::wstring& text);
// True when the two are equal but for A-Z case; both are left lower-cased when
// their lengths agree.
bool equal_ignore_case(std::string& a, std::string& b);
// True when `text` begins with `prefix`, A-Z matching a-z.
bool starts_with_ignore_case(std::string_view text, std::string_view prefix);
// Every `from` (and its other case with `ignore_case`) becomes `to`; each
// element is looked at once.
void substitute_char(std::string& text, char from, char to, bool ignore_case);
void substitute_char_wide(std::wstring& text, wchar_t from, wchar_t to, bool ignore_case);
// Blanks, tabs, CR and LF off both ends; false, and the text emptied, when
// nothing else is left.
bool trim_blanks(std::string& text);
// Spaces, then tabs, off both ends, each kind on its own; then CR and LF off
// the end. False when the text becomes empty on the way.
bool trim_wide(std::wstring& text);
// Removes the CR and LF bytes at the end; gives how many went.
std::size_t chomp_line_end(std::string& text);
// Removes every "/" and "\" at the end.
void strip_trailing_slashes(std::wstring& text);
// Needs text, read up to its first NUL; gives the items between separators,
// each trimmed with `trim`, empty ones dropped unless `keep_empty`. False only
// for an empty text.
bool split_wide(std::wstring const& text, wchar_t separator, std::vector<std::wstring>& items, bool trim,
                bool keep_empty);
// Gives `text` with every `from` replaced by `to`, in `result`; an empty
// `text` or `from` gives "" (the text is not copied).
std::string& replace_all(std::string& result, std::string const& text, std::string const& from, std::string const& to);
// Gives the GUID as lower-case hex in 8-4-4-4-12 form, the first three groups
// read little-endian.
std::string guid_text(std::uint8_t const (&guid)[16]);
// True when the system knows a locale of that name; never throws.
bool locale_name_known(std::string const& name);
