#include "driver/arg_list.h"

namespace {

char lower_ascii(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

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
