#pragma once
// A library's error text as one line of a message: line ends become blanks,
// trailing blanks go, and an empty text says "unreadable".
#include <string>

inline std::string library_message_line(std::string line)
{
    for (char& c : line)
        if (c == '\n' || c == '\r') c = ' ';
    while (!line.empty() && line.back() == ' ') line.pop_back();
    return line.empty() ? "unreadable" : line;
}
