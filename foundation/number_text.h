#pragma once
// Number texts as the options and the time range write them: decimal, hex
// ("0x", "x"), octal ("o") and a quoted character ("'A'"). Blanks around the
// number are ignored; a bad or too wide number fails and leaves 0, never a
// wrapped value.
#include <cstdint>
#include <string>

// Needs any text; gives the 32-bit value. Decimal must start with a digit or
// a sign as the very first byte, and a "-" wraps ("-1" is 0xFFFFFFFF).
bool parse_u32_text(std::string const& text, std::uint32_t& value);
// Needs any text of at most 32 characters after leading blanks; gives the
// 64-bit value. Fails on a blank behind the digits, a sign, or overflow.
bool parse_u64_text(std::string const& text, std::uint64_t& value);
