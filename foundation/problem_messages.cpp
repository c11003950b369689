#include "foundation/problem_messages.h"

#include <cstdarg>
#include <cstdio>
#include <vector>

namespace {

thread_local std::string* capture_text = nullptr;

} // namespace

void print_problem(char const* format, ...)
{
    std::va_list args;
    va_start(args, format);
    std::va_list again;
    va_copy(again, args);
    int const length = std::vsnprintf(nullptr, 0, format, args);
    va_end(args);
    std::vector<char> text(length > 0 ? static_cast<std::size_t>(length) + 1 : 1, '\0');
    if (length > 0) std::vsnprintf(text.data(), text.size(), format, again);
    va_end(again);
    if (capture_text != nullptr) capture_text->append(text.data());
    else std::fputs(text.data(), stderr);
}

problem_capture::problem_capture(std::string& into) : m_outer(capture_text) { capture_text = &into; }

problem_capture::~problem_capture() { capture_text = m_outer; }
