#pragma once
// The raw command line and the few operations that look words up in it and
// consume them. Names match whole, in any ASCII letter case; a prefix never
// matches and nothing splits "name=value".
#include <cstddef>
#include <string>
#include <vector>

using arg_list = std::vector<std::string>;

// Lengths must agree; then both are compared lower-cased, A-Z only.
bool equal_no_case(std::string const& a, std::string const& b);

bool find_option(std::string const& name, arg_list const& list, std::size_t start);
// The element behind `name` into `value`; false (value untouched) when `name` stands last.
bool peek_value(std::string const& name, std::string& value, arg_list const& list, std::size_t start);
// Finds `name` from element 0 and removes it unless `keep`.
bool take_flag(std::string const& name, arg_list& list, bool keep = false);
// Finds `name`, takes the next element as its value and removes both. A name
// that stands last stays in the list and the result is false.
bool take_value(std::string const& name, std::string& value, arg_list& list);
void remove_at(std::size_t index, arg_list& list);
