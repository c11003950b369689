#pragma once
// The one way to a file, over the system's descriptors, plus the loader of
// whole files and the buffered stream that carries a report into -out.
#include <cstdint>
#include <fstream>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

namespace uni {

class fileio_output;

class fileio {
public:
    fileio();
    fileio(std::wstring const& path, bool write, bool truncate);
    fileio(std::string const& path, bool write, bool truncate);
    ~fileio();
    fileio(fileio const&) = delete;
    fileio& operator=(fileio const&) = delete;

    bool open(std::wstring const& path, bool write, bool truncate);
    bool open(std::string const& path, bool write, bool truncate);
    bool read(std::vector<std::uint8_t>& out, std::int64_t count, std::uint64_t offset);
    bool append(std::uint8_t const* data, std::uint32_t count);
    bool append(std::vector<std::uint8_t> const& data);
    bool append_stream(std::ostringstream const& stream);
    // A stream over the file with a put area of 0x40000 bytes; null when closed.
    std::ostream* output_stream();
    void close();
    // Turns the object into an in-memory buffer: reads and writes go to memory.
    void use_memory();

    bool is_open() const { return m_is_open; }
    std::uint64_t size() const { return m_size; }
    std::vector<std::uint8_t> const& memory() const { return m_memory; }

private:
    void measure_size();

    int m_descriptor = -1;
    std::uint64_t m_size = 0;
    bool m_writable = false;
    bool m_is_open = false;
    std::wstring m_path;
    std::vector<std::uint8_t> m_memory;
    bool m_memory_mode = false;
    std::uint64_t m_position = 0;
    std::unique_ptr<fileio_output> m_stream;
};

// The -diags log.
class ofstream : public std::ofstream {
public:
    using std::ofstream::ofstream;
};

} // namespace uni

// A stream that swallows everything and reports it as written.
std::ostream& null_out_stream();

bool read_file_prefix(std::string const& path, std::uint32_t limit, std::vector<std::uint8_t>& out);
bool read_whole_file(std::vector<std::uint8_t>& out, std::string const& path, std::uint32_t count);
bool make_directory(std::string const& path);
// Size, mode, and the raw unix seconds of st_ctime, st_mtime, st_atime.
bool file_stat(std::wstring const& path, std::uint64_t& size, std::uint32_t& mode, std::uint64_t& changed,
               std::uint64_t& modified, std::uint64_t& accessed);
