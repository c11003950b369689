#include "foundation/vlm_string.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstring>
#include <locale>
#include <new>

namespace {

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// The ASCII rule of the "C" locale, for wide elements: A to Z only.
wchar_t lower_wide_char(wchar_t c) { return (c >= L'A' && c <= L'Z') ? static_cast<wchar_t>(c + 32) : c; }
wchar_t upper_wide_char(wchar_t c) { return (c >= L'a' && c <= L'z') ? static_cast<wchar_t>(c - 32) : c; }

std::ctype<char> const& narrow_ctype()
{
    static std::locale const classic = std::locale::classic();
    static std::ctype<char> const& facet = std::use_facet<std::ctype<char>>(classic);
    return facet;
}

// Removes every leading, then every trailing, occurrence of c.
void strip_both_ends(std::wstring& text, wchar_t c)
{
    std::size_t first = text.find_first_not_of(c);
    if (first == std::wstring::npos) {
        text.clear();
        return;
    }
    std::size_t last = text.find_last_not_of(c);
    text = text.substr(first, last - first + 1);
}

void strip_end(std::wstring& text, wchar_t c)
{
    while (!text.empty() && text.back() == c) text.pop_back();
}

// Elements are encoded by range alone. Text read from a Prefetch file holds
// UTF-16 units, so a surrogate pair comes out as two three-byte forms: that is
// what the file holds, and reports show it unaltered.
std::size_t utf8_length(std::uint32_t v)
{
    return v <= 0x7F ? 1 : v <= 0x7FF ? 2 : v <= 0xFFFF ? 3 : v <= 0x10FFFF ? 4 : 0;
}

char* put_utf8(char* out, std::uint32_t v)
{
    switch (utf8_length(v)) {
    case 1: *out++ = static_cast<char>(v); break;
    case 2:
        *out++ = static_cast<char>(0xC0 | (v >> 6));
        *out++ = static_cast<char>(0x80 | (v & 0x3F));
        break;
    case 3:
        *out++ = static_cast<char>(0xE0 | (v >> 12));
        *out++ = static_cast<char>(0x80 | ((v >> 6) & 0x3F));
        *out++ = static_cast<char>(0x80 | (v & 0x3F));
        break;
    default:
        *out++ = static_cast<char>(0xF0 | (v >> 18));
        *out++ = static_cast<char>(0x80 | ((v >> 12) & 0x3F));
        *out++ = static_cast<char>(0x80 | ((v >> 6) & 0x3F));
        *out++ = static_cast<char>(0x80 | (v & 0x3F));
        break;
    }
    return out;
}

// Appends the UTF-8 form of `count` elements, element(i) giving each:
// measured first, so the text grows once to its size. An element beyond
// Unicode ends the text, keeping what came before; without memory nothing is
// appended.
template <typename element_at>
void append_utf8(std::string& out, std::size_t count, element_at element)
{
    std::size_t length = 0;
    std::size_t taken = 0;
    for (; taken < count; ++taken) {
        std::size_t const bytes = utf8_length(element(taken));
        if (bytes == 0) break;
        length += bytes;
    }
    std::size_t const start = out.size();
    try {
        out.resize(start + length);
    } catch (std::bad_alloc const&) {
        return;
    }
    char* at = out.data() + start;
    for (std::size_t i = 0; i < taken; ++i) at = put_utf8(at, element(i));
}

} // namespace

std::string wide_to_utf8(std::wstring const& wide)
{
    std::string out;
    append_utf8(out, wide.size(), [&wide](std::size_t i) { return static_cast<std::uint32_t>(wide[i]); });
    return out;
}

// The same encoding straight from the file's bytes: each unit is one element.
// The names in a Prefetch file are nearly always ASCII, one byte a unit, so
// that is tried first, four units at a time on a little-endian host.
void append_utf16le_as_utf8(std::string& out, std::span<std::uint8_t const> bytes)
{
    std::size_t const units = bytes.size() / 2;
    std::size_t const start = out.size();
    try {
        out.resize(start + units);
    } catch (std::bad_alloc const&) {
        return;
    }
    char* const text = out.data() + start;
    std::size_t at = 0;
    if constexpr (std::endian::native == std::endian::little) {
        // Any bit above the low seven of a unit makes the text other than ASCII.
        constexpr std::uint64_t above_ascii = 0xFF80FF80FF80FF80ULL;
        for (; at + 4 <= units; at += 4) {
            std::uint64_t four = 0;
            std::memcpy(&four, bytes.data() + 2 * at, 8);
            if ((four & above_ascii) != 0) break;
            // The low byte of each unit, side by side in the low four bytes.
            four = (four | four >> 8) & 0x0000FFFF0000FFFFULL;
            auto const packed = static_cast<std::uint32_t>(four | four >> 16);
            std::memcpy(text + at, &packed, 4);
        }
    }
    for (; at < units; ++at) {
        unsigned const unit = bytes[2 * at] | bytes[2 * at + 1] << 8;
        if (unit > 0x7F) break;
        text[at] = static_cast<char>(unit);
    }
    if (at == units) return;
    out.resize(start);
    append_utf8(out, units,
                [bytes](std::size_t i) { return static_cast<std::uint32_t>(bytes[2 * i] | bytes[2 * i + 1] << 8); });
}

std::string utf16le_to_utf8(std::span<std::uint8_t const> bytes)
{
    std::string out;
    append_utf16le_as_utf8(out, bytes);
    return out;
}

// Structure is checked, nothing else: overlong forms, surrogates and values
// above 0x10FFFF pass as computed. On a fault the finished elements stay.
bool utf8_into_wide(std::wstring& wide_result, std::string_view narrow)
{
    wide_result.clear();
    if (narrow.empty()) return false;
    wide_result.reserve(narrow.size());
    std::size_t i = 0;
    while (i < narrow.size()) {
        unsigned char lead = static_cast<unsigned char>(narrow[i++]);
        std::uint32_t value = 0;
        int more = 0;
        if (lead < 0x80) {
            value = lead;
        } else if ((lead & 0xE0) == 0xC0) {
            value = lead & 0x1F;
            more = 1;
        } else if ((lead & 0xF0) == 0xE0) {
            value = lead & 0x0F;
            more = 2;
        } else if ((lead & 0xF8) == 0xF0) {
            value = lead & 0x07;
            more = 3;
        } else {
            return false;
        }
        for (; more > 0; --more) {
            if (i >= narrow.size()) return false;
            unsigned char next = static_cast<unsigned char>(narrow[i++]);
            if ((next & 0xC0) != 0x80) return false;
            value = (value << 6) | (next & 0x3F);
        }
        wide_result.push_back(static_cast<wchar_t>(value));
    }
    return true;
}

std::wstring utf8_to_wide(std::string_view narrow)
{
    std::wstring work;
    if (!utf8_into_wide(work, narrow)) return std::wstring();
    return work;
}

std::string& to_lower_narrow(std::string& text)
{
    if (!text.empty()) narrow_ctype().tolower(text.data(), text.data() + text.size());
    return text;
}

void to_upper_narrow(std::string& text)
{
    if (!text.empty()) narrow_ctype().toupper(text.data(), text.data() + text.size());
}

std::wstring& to_lower_wide(std::wstring& text)
{
    for (wchar_t& c : text) c = lower_wide_char(c);
    return text;
}

// Both arguments are left lower-cased when the lengths agree.
bool equal_ignore_case(std::string& a, std::string& b)
{
    if (a.size() != b.size()) return false;
    to_lower_narrow(a);
    to_lower_narrow(b);
    return a == b;
}

bool starts_with_ignore_case(std::string_view text, std::string_view prefix)
{
    auto const lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
    return text.size() >= prefix.size() &&
           std::equal(prefix.begin(), prefix.end(), text.begin(), [&](char a, char b) { return lower(a) == lower(b); });
}

// Each element is looked at once, so a `to` inside the searched set is
// written and left, never searched again.
void substitute_char(std::string& text, char from, char to, bool ignore_case)
{
    if (to == from) return;
    char lower = from;
    char upper = from;
    if (ignore_case) {
        lower = narrow_ctype().tolower(from);
        upper = narrow_ctype().toupper(from);
    }
    for (char& c : text)
        if (c == lower || c == upper) c = to;
}

void substitute_char_wide(std::wstring& text, wchar_t from, wchar_t to, bool ignore_case)
{
    wchar_t lower = ignore_case ? lower_wide_char(from) : from;
    wchar_t upper = ignore_case ? upper_wide_char(from) : from;
    for (wchar_t& c : text)
        if (c == lower || c == upper) c = to;
}

bool trim_blanks(std::string& text)
{
    std::size_t first = 0;
    while (first < text.size() && is_blank(text[first])) ++first;
    if (first == text.size()) {
        text.clear();
        return false;
    }
    std::size_t last = text.size();
    while (is_blank(text[last - 1])) --last;
    text = text.substr(first, last - first);
    return true;
}

// Spaces, then tabs, then line ends, each kind peeled on its own: " \t x"
// keeps the space behind the tab, and "x\r\n" keeps its CR.
bool trim_wide(std::wstring& text)
{
    strip_both_ends(text, L' ');
    if (text.empty()) return false;
    strip_both_ends(text, L'\t');
    if (text.empty()) return false;
    strip_end(text, L'\r');
    strip_end(text, L'\n');
    return true;
}

std::size_t chomp_line_end(std::string& text)
{
    std::size_t removed = 0;
    while (!text.empty() && (text.back() == '\r' || text.back() == '\n')) {
        text.pop_back();
        ++removed;
    }
    return removed;
}

void strip_trailing_slashes(std::wstring& text)
{
    while (!text.empty() && (text.back() == L'/' || text.back() == L'\\')) text.pop_back();
}

// The text is read as a zero-terminated string. `left` counts down the
// elements still to split; a separator at the very start gives no item, and
// with keep_empty a separator as the last element gives one empty item.
bool split_wide(std::wstring const& text, wchar_t separator, std::vector<std::wstring>& items, bool trim,
                bool keep_empty)
{
    items.clear();
    if (text.empty()) return false;
    std::size_t end = text.find(L'\0');
    if (end == std::wstring::npos) end = text.size();
    std::int64_t left = static_cast<std::int64_t>(text.size());
    std::size_t pos = 0;
    for (;;) {
        std::size_t sep = pos < end ? text.find(separator, pos) : std::wstring::npos;
        if (sep >= end) {
            std::wstring item = text.substr(pos, end - pos);
            if (trim) trim_wide(item);
            if (!item.empty()) items.push_back(item);
            break;
        }
        if (sep != 0) {
            std::wstring item = text.substr(pos, sep - pos);
            if (trim) trim_wide(item);
            left -= static_cast<std::int64_t>(item.size()) + 1;
            if (!item.empty() || keep_empty) items.push_back(std::move(item));
        } else {
            left -= 1;
        }
        pos = sep + 1;
        if (left == 0 && keep_empty && text.back() == separator) items.emplace_back();
        if (left < 1) break;
    }
    return true;
}

// An empty `text` or `from` leaves `result` empty: the text is not copied.
std::string& replace_all(std::string& result, std::string const& text, std::string const& from, std::string const& to)
{
    result.clear();
    if (text.empty() || from.empty()) return result;
    result.reserve(text.size() + 256);
    std::size_t pos = 0;
    for (std::size_t hit = text.find(from); hit != std::string::npos; hit = text.find(from, pos)) {
        result.append(text, pos, hit - pos);
        result.append(to);
        pos = hit + from.size();
    }
    result.append(text, pos, std::string::npos);
    return result;
}

// A GUID in its Windows layout: u32, u16, u16 little-endian, then eight bytes.
std::string guid_text(std::uint8_t const (&guid)[16])
{
    unsigned data1 = guid[0] | (guid[1] << 8) | (guid[2] << 16) | (static_cast<unsigned>(guid[3]) << 24);
    unsigned data2 = guid[4] | (guid[5] << 8);
    unsigned data3 = guid[6] | (guid[7] << 8);
    char buf[40];
    std::snprintf(buf, sizeof buf, "%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x", data1, data2, data3, guid[8],
                  guid[9], guid[10], guid[11], guid[12], guid[13], guid[14], guid[15]);
    return buf;
}

bool locale_name_known(std::string const& name)
{
    try {
        std::locale probe(name.c_str());
        return true;
    } catch (...) {
        return false;
    }
}
