#pragma once
// The one way to a file, over the system's descriptors, plus the loader of
// whole files and the buffered stream that carries a report into -out.
#include <cstdint>
#include <fstream>
#include <memory>
#include <ostream>
#include <sstream>
#include <streambuf>
#include <string>
#include <vector>

namespace uni {

class fileio_output;

// A file opened for reading, or for writing (created when missing, emptied with
// `truncate`). Reads try O_NOATIME first so that kito leaves the access time of
// evidence as it found it. Failures are false results and is_open() == false.
class fileio {
public:
    fileio();
    fileio(std::wstring const& path, bool write, bool truncate);
    fileio(std::string const& path, bool write, bool truncate);
    ~fileio();
    fileio(fileio const&) = delete;
    fileio& operator=(fileio const&) = delete;

    // False for a FIFO or a path that cannot be opened as asked; a folder opens but reads nothing.
    bool open(std::wstring const& path, bool write, bool truncate);
    bool open(std::string const& path, bool write, bool truncate);
    // Up to count bytes from offset into out; false at or past the end, for a folder, or when a read fails.
    bool read(std::vector<std::uint8_t>& out, std::int64_t count, std::uint64_t offset);
    // Up to count bytes from offset into buffer, whatever size the file
    // claims (a disk device claims none): the count read, 0 at the end, -1
    // when a read fails or the file is a folder.
    std::int64_t read_at(std::uint8_t* buffer, std::size_t count, std::uint64_t offset);
    bool is_directory() const { return m_is_directory; }
    // Writes all the bytes at the end; false on a short or failed write.
    bool append(std::uint8_t const* data, std::uint32_t count);
    bool append(std::vector<std::uint8_t> const& data);
    bool append_stream(std::ostringstream const& stream);
    // A stream over the file with a put area of 0x40000 bytes; null when closed.
    std::ostream* output_stream();
    // Sends what the output stream still holds; false when any write of it failed.
    bool finish_output();
    void close();
    // Turns the object into an in-memory buffer: reads and writes go to memory.
    void use_memory();

    bool is_open() const { return m_is_open; }
    std::uint64_t size() const { return m_size; }
    std::vector<std::uint8_t> const& memory() const { return m_memory; }

private:
    void measure_size();
    bool open_narrow(std::string path, bool write, bool truncate);

    int m_descriptor = -1;
    std::uint64_t m_size = 0;
    bool m_writable = false;
    bool m_is_open = false;
    bool m_is_directory = false;
    std::wstring m_path;
    std::vector<std::uint8_t> m_memory;
    bool m_memory_mode = false;
    std::uint64_t m_position = 0;
    std::unique_ptr<fileio_output> m_stream;
};

// An output buffer with a put area of its own. The area's end pointer stands
// one byte short of the vector, so overflow always has room for the character
// it is handed; the whole area then goes to write_bytes of the derived class.
template <typename char_type>
class streambuf_generic_output : public std::basic_streambuf<char_type> {
public:
    using traits = std::char_traits<char_type>;
    using int_type = typename traits::int_type;

    explicit streambuf_generic_output(std::size_t area_size);
    bool ok() const { return m_ok; }
    // Sends the put area now; false when this or any earlier write failed.
    bool finish()
    {
        flush_put_area();
        return m_ok;
    }

protected:
    int sync() override;
    int_type overflow(int_type c) override;
    // 0 when the area went out (or the buffer has failed before), -1 otherwise.
    virtual int flush_put_area();
    // Takes up to `count` bytes; returns how many, or -1 on failure.
    virtual int write_bytes(char_type const* data, int count) = 0;

    std::vector<char_type> m_area;
    bool m_ok = true;
};

// Appends to a fileio. Its sync does nothing: flush and endl leave the bytes in
// the area, which goes out only when full and when the buffer is destroyed.
class fileio_ostream : public streambuf_generic_output<char> {
public:
    fileio_ostream(fileio& file, std::size_t area_size);
    ~fileio_ostream() override;

protected:
    int sync() override { return 0; }
    int write_bytes(char const* data, int count) override;

private:
    fileio& m_file;
};

// Writes nothing; adds the value of every byte to a sum.
class fileio_stats_ostream : public streambuf_generic_output<char> {
public:
    fileio_stats_ostream(std::uint64_t& sum, std::size_t area_size);
    ~fileio_stats_ostream() override;

protected:
    int sync() override { return 0; }
    int write_bytes(char const* data, int count) override;

private:
    std::uint64_t& m_sum;
};

// The results stream of -out: an ostream over a fileio_ostream when the file is open.
class fileio_output : public std::ostream {
public:
    fileio_output(fileio& file, std::size_t area_size, bool file_open);
    ~fileio_output() override;
    bool finish() { return m_buffer.finish(); }

private:
    fileio_ostream m_buffer;
};

class fileio_stats_output : public std::ostream {
public:
    fileio_stats_output(std::uint64_t& sum, std::size_t area_size);
    ~fileio_stats_output() override;

private:
    fileio_stats_ostream m_buffer;
};

// The -diags log.
class ofstream : public std::ofstream {
public:
    using std::ofstream::ofstream;
};

class ifstream : public std::ifstream {
public:
    using std::ifstream::ifstream;
};

} // namespace uni

// Swallows everything and reports it as written.
class null_out_buf : public std::streambuf {
protected:
    std::streamsize xsputn(char const*, std::streamsize count) override { return count; }
    int_type overflow(int_type c) override { return c; }
};

// A stream that swallows everything and reports it as written.
std::ostream& null_out_stream();

// Replaces out with the first `limit` bytes of the file (fewer if it is
// shorter); false when it cannot be opened or read.
bool read_file_prefix(std::string const& path, std::uint32_t limit, std::vector<std::uint8_t>& out);
// Replaces out with the first `count` bytes (fewer if the file is shorter); false when none were read.
bool read_whole_file(std::vector<std::uint8_t>& out, std::string const& path, std::uint32_t count);
// Creates one folder; true when it exists afterwards.
bool make_directory(std::string const& path);
// True when both paths name one existing file (the same device and inode, links followed).
bool same_file(std::string const& first, std::string const& second);
// Size, mode, and the raw unix seconds of st_ctime, st_mtime, st_atime.
bool file_stat(std::wstring const& path, std::uint64_t& size, std::uint32_t& mode, std::uint64_t& changed,
               std::uint64_t& modified, std::uint64_t& accessed);
// What the file system says of a file: the stat fields and, where the file
// system keeps one, the birth time. All zero when the path names nothing.
struct file_facts {
    std::uint64_t size = 0;
    std::uint32_t mode = 0;
    std::uint64_t changed = 0, modified = 0, accessed = 0; // raw unix seconds
    bool born_known = false;
    std::int64_t born_seconds = 0;
    std::uint32_t born_nanoseconds = 0;
};
bool file_facts_of(std::string const& path, file_facts& facts);
