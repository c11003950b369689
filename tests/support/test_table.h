#pragma once
// The case rows of a test, kept in tests/data/<name>.json beside the sources (found without any
// environment variable, so that the runs in other time zones read them too).
#include <nlohmann/json.hpp>
#include <string>

using json = nlohmann::json;

json test_table(std::string const& name);
// One part of it, by value: a range-for may loop over it directly.
inline json test_rows(std::string const& name, char const* part) { return test_table(name).at(part); }

// A table's text whose characters U+0000 to U+00FF each stand for one byte: any bytes, written readably.
std::string bytes_of(json const& text);
