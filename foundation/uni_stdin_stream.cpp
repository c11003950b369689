#include "foundation/uni_stdin_stream.h"

#include <cstring>

#include "foundation/vlm_string.h"

namespace uni {

stdin_stream::stdin_stream(bool keep_raw)
    : m_buffer(std::make_unique<char[]>(line_buffer_size)), m_source(stdin), m_ready(stdin != nullptr),
      m_keep_raw(keep_raw)
{
}

bool stdin_stream::next_file(std::string& name, bool trim)
{
    name.clear();
    if (!m_ready) return false;
    if (std::fgets(m_buffer.get(), static_cast<int>(m_buffer_size), m_source) == nullptr) return false;
    // Up to the first zero byte: a NUL inside a line ends the name there.
    name.assign(m_buffer.get(), ::strnlen(m_buffer.get(), m_buffer_size));
    if (trim) chomp_line_end(name);
    return true;
}

bool stdin_stream::next_file(std::wstring& name, bool trim)
{
    std::string narrow;
    name.clear();
    if (!next_file(narrow, trim)) return false;
    // A line that is not well-formed UTF-8 keeps what came before the fault.
    utf8_into_wide(name, narrow);
    return true;
}

} // namespace uni
