#pragma once
// Messages about one input ("prob reading file ...") go to standard error, or,
// while a capture is active on the calling thread, into the capture's text:
// a batch decoded on several threads then prints each file's messages in
// input order, where one thread would have printed them.
#include <string>

// printf-style; the text goes out whole.
void print_problem(char const* format, ...) __attribute__((format(printf, 1, 2)));

// Collects what print_problem is given on this thread while it lives.
class problem_capture {
public:
    explicit problem_capture(std::string& into);
    ~problem_capture();
    problem_capture(problem_capture const&) = delete;
    problem_capture& operator=(problem_capture const&) = delete;

private:
    std::string* m_outer;
};
