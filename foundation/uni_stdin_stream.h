#pragma once
// Lines of text from standard input, one name per line, as a batch reads them.
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

namespace uni {

class stdin_stream {
public:
    // fgets reads at most size - 1 bytes, so a longer line comes back in pieces.
    static constexpr std::uint32_t line_buffer_size = 4096;

    explicit stdin_stream(bool keep_raw);
    virtual ~stdin_stream() = default;
    stdin_stream(stdin_stream const&) = delete;
    stdin_stream& operator=(stdin_stream const&) = delete;

    // The next line; with `trim`, the CR and LF bytes at its end go. False at
    // the end of input. Blanks belong to the name and are kept.
    virtual bool next_file(std::string& name, bool trim);
    virtual bool next_file(std::wstring& name, bool trim);

protected:
    std::unique_ptr<char[]> m_buffer;
    std::FILE* m_source = nullptr;
    bool m_ready = false;
    bool m_keep_raw = false;
    std::uint32_t m_buffer_size = line_buffer_size;
};

} // namespace uni
