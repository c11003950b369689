#pragma once
// A small JSON reader for the corpus sidecars: numbers are kept as their text
// so that 64-bit FILETIME values survive exactly; strings come as UTF-8.
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

    json_value const* find(std::string_view key) const; // null when absent
    bool is_null() const { return type == kind::null; }
    std::uint64_t as_u64() const;
};

// False on malformed input; `out` then holds whatever was parsed.
bool parse_json(std::string_view text, json_value& out);

// The member `key`, or a null value where it is absent.
json_value const& member_of(json_value const& object, std::string_view key);
// Sidecar text is a string, or {"hex": ...} for bytes that are not UTF-8.
std::string sidecar_text(json_value const& value);
std::vector<std::string> sidecar_texts(json_value const& list);
std::vector<std::uint64_t> numbers_of(json_value const& list);
