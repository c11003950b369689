#pragma once
// A small JSON reader for the corpus sidecars: objects, arrays, strings
// (escapes decoded to UTF-8), numbers kept as their text so that 64-bit
// FILETIME values survive exactly, true, false and null.
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

struct json_value {
    enum class kind { null, boolean, number, string, array, object };
    kind type = kind::null;
    bool flag = false;
    std::string text; // a string's bytes, or a number's digits
    std::vector<json_value> items;
    std::vector<std::pair<std::string, json_value>> members;

    // Member of an object, or null when absent.
    json_value const* find(std::string_view key) const;
    bool is_null() const { return type == kind::null; }
    std::uint64_t as_u64() const;
};

// False on malformed input; `out` then holds whatever was parsed.
bool parse_json(std::string_view text, json_value& out);
