#include "driver/arg_list.h"

#include <cctype>

namespace {

char lower_ascii(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

std::string lowered(std::string text)
{
    for (char& c : text) c = lower_ascii(c);
    return text;
}

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

std::string trimmed(std::string const& text)
{
    std::size_t first = 0, last = text.size();
    while (first < last && is_blank(text[first])) ++first;
    while (last > first && is_blank(text[last - 1])) --last;
    return text.substr(first, last - first);
}

// Digits of one base, all of them, into a 64-bit value; false on any other
// character or on overflow.
bool digits_to_u64(std::string const& digits, unsigned base, std::uint64_t& value)
{
    if (digits.empty()) return false;
    std::uint64_t result = 0;
    for (char c : digits) {
        unsigned d;
        if (c >= '0' && c <= '9') d = static_cast<unsigned>(c - '0');
        else if (c >= 'a' && c <= 'f') d = static_cast<unsigned>(c - 'a' + 10);
        else if (c >= 'A' && c <= 'F') d = static_cast<unsigned>(c - 'A' + 10);
        else return false;
        if (d >= base) return false;
        if (result > (UINT64_MAX - d) / base) return false;
        result = result * base + d;
    }
    value = result;
    return true;
}

} // namespace

bool equal_no_case(std::string const& a, std::string const& b)
{
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (lower_ascii(a[i]) != lower_ascii(b[i])) return false;
    return true;
}

bool find_option(std::string const& name, arg_list const& list, std::size_t start)
{
    for (std::size_t i = start; i < list.size(); ++i)
        if (equal_no_case(list[i], name)) return true;
    return false;
}

bool peek_value(std::string const& name, std::string& value, arg_list const& list, std::size_t start)
{
    for (std::size_t i = start; i < list.size(); ++i) {
        if (!equal_no_case(list[i], name)) continue;
        if (i + 1 >= list.size()) return false;
        value = list[i + 1];
        return true;
    }
    return false;
}

bool take_flag(std::string const& name, arg_list& list, bool keep)
{
    for (std::size_t i = 0; i < list.size(); ++i) {
        if (!equal_no_case(list[i], name)) continue;
        if (!keep) remove_at(i, list);
        return true;
    }
    return false;
}

bool take_value(std::string const& name, std::string& value, arg_list& list)
{
    for (std::size_t i = 0; i < list.size(); ++i) {
        if (!equal_no_case(list[i], name)) continue;
        if (i + 1 >= list.size()) return false;
        value = list[i + 1];
        list.erase(list.begin() + static_cast<std::ptrdiff_t>(i), list.begin() + static_cast<std::ptrdiff_t>(i + 2));
        return true;
    }
    return false;
}

void remove_at(std::size_t index, arg_list& list)
{
    if (index < list.size()) list.erase(list.begin() + static_cast<std::ptrdiff_t>(index));
}

bool parse_u32_text(std::string const& text, std::uint32_t& value)
{
    value = 0;
    std::string const t = lowered(trimmed(text));
    if (t.empty()) return false;
    std::uint64_t v = 0;
    bool ok;
    if (t.size() > 1 && t[1] == 'x') ok = digits_to_u64(t.substr(2), 16, v);
    else if (t[0] == 'x') ok = digits_to_u64(t.substr(1), 16, v);
    else if (t[0] == 'o') ok = digits_to_u64(t.substr(1), 8, v);
    else if (t.size() == 3 && t[0] == '\'' && t[2] == '\'') {
        v = static_cast<unsigned char>(trimmed(text)[1]);
        ok = true;
    } else {
        // Decimal: the text as it came must start with a digit or a sign.
        char const first = text.empty() ? '\0' : text[0];
        if (!(std::isdigit(static_cast<unsigned char>(first)) || first == '+' || first == '-')) return false;
        bool const negative = t[0] == '-';
        std::string digits = (t[0] == '+' || t[0] == '-') ? t.substr(1) : t;
        ok = digits_to_u64(digits, 10, v) && v <= UINT32_MAX;
        if (ok && negative) v = static_cast<std::uint32_t>(0u - static_cast<std::uint32_t>(v));
    }
    // A number too wide for the field is refused rather than wrapped, so a
    // typo never turns into a small, plausible value.
    if (!ok || v > UINT32_MAX) return false;
    value = static_cast<std::uint32_t>(v);
    return true;
}

bool parse_u64_text(std::string const& text, std::uint64_t& value)
{
    value = 0;
    std::size_t start = 0;
    while (start < text.size() && is_blank(text[start])) ++start;
    std::string const t = lowered(text.substr(start)); // a blank behind the digits fails below
    if (t.empty() || t.size() > 32) return false;
    if (t.rfind("0x", 0) == 0 || t[0] == 'x') {
        std::string const digits = t.substr(t[0] == 'x' ? 1 : 2);
        if (digits.size() > 16) return false;
        return digits_to_u64(digits, 16, value);
    }
    if (t[0] == 'o') {
        if (t.size() > 23) return false;
        return digits_to_u64(t.substr(1), 8, value);
    }
    if (t.size() > 20) return false;
    return digits_to_u64(t, 10, value);
}
