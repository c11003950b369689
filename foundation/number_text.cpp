#include "foundation/number_text.h"

#include <cctype>

#include "foundation/vlm_string.h"

namespace {

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

std::string trimmed(std::string text)
{
    trim_blanks(text); // blank, tab, CR, LF at both ends
    return text;
}

} // namespace

bool parse_u32_text(std::string const& text, std::uint32_t& value)
{
    value = 0;
    std::string const bare = trimmed(text);
    std::string t = bare;
    to_lower_narrow(t);
    if (t.empty()) return false;
    std::uint64_t v = 0;
    bool ok;
    if (t.size() > 1 && t[1] == 'x') ok = digits_to_u64(t.substr(2), 16, v);
    else if (t[0] == 'x') ok = digits_to_u64(t.substr(1), 16, v);
    else if (t[0] == 'o') ok = digits_to_u64(t.substr(1), 8, v);
    else if (t.size() == 3 && t[0] == '\'' && t[2] == '\'') {
        v = static_cast<unsigned char>(bare[1]); // the character as written, not lowered
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
    std::size_t const start = text.find_first_not_of(" \t\r\n");
    if (start == std::string::npos) return false;
    std::string t = text.substr(start); // a blank behind the digits fails below
    to_lower_narrow(t);
    if (t.size() > 32) return false;
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
