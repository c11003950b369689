#include "foundation/uni_fileio.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/vlm_string.h"

namespace uni {

namespace {

constexpr std::size_t results_area_size = 0x40000;
// Files under /proc report no end; they are read up to this many bytes.
constexpr std::uint64_t proc_file_size = 0x40000;
constexpr std::size_t read_chunk = 0x10000000;
// The descriptor's offset after a write that failed part way.
constexpr std::uint64_t unknown_position = UINT64_MAX;

bool is_separator(char c) { return c == '/' || c == '\\'; }

} // namespace

fileio::fileio() = default;

fileio::fileio(std::wstring const& path, bool write, bool truncate) { open(path, write, truncate); }

fileio::fileio(std::string const& path, bool write, bool truncate) { open(path, write, truncate); }

fileio::~fileio() { close(); }

bool fileio::open(std::wstring const& path, bool write, bool truncate)
{
    if (path.empty()) return false;
    return open_narrow(wide_to_utf8(path), write, truncate);
}

bool fileio::open(std::string const& path, bool write, bool truncate)
{
    // The narrow path goes to the system as it is: Linux names need not be UTF-8.
    return open_narrow(path, write, truncate);
}

bool fileio::open_narrow(std::string path, bool write, bool truncate)
{
    if (path.empty() || m_memory_mode) return false;
    while (!path.empty() && is_separator(path.back())) path.pop_back();
    close();

    int flags = write ? (truncate ? O_RDWR | O_CREAT | O_TRUNC : O_RDWR) : O_RDONLY;
    // Non-blocking, so that opening a FIFO named in a file list cannot hang the run.
    flags |= O_NONBLOCK;
    // Reading evidence must not change its access time where the system lets
    // us keep it (the owner, or root); elsewhere the plain open is used.
    int descriptor = write ? -1 : ::open(path.c_str(), flags | O_NOATIME);
    if (descriptor < 0) descriptor = ::open(path.c_str(), flags, write ? 0606 : 0404);
    if (descriptor < 0) return false;

    struct stat info {};
    if (::fstat(descriptor, &info) != 0 || S_ISFIFO(info.st_mode) || S_ISSOCK(info.st_mode)) {
        ::close(descriptor);
        return false;
    }
    m_descriptor = descriptor;
    m_path = utf8_to_wide(path);
    m_writable = write;
    m_is_open = true;
    m_is_directory = S_ISDIR(info.st_mode);
    m_position = 0;
    // A regular file's size is the fstat's answer; seeking is for the rest
    // (devices, and the files under /proc, which all read as empty).
    if (S_ISREG(info.st_mode) && info.st_size > 0) m_size = static_cast<std::uint64_t>(info.st_size);
    else measure_size();
    return true;
}

void fileio::measure_size()
{
    ::lseek(m_descriptor, 0, SEEK_SET);
    errno = 0;
    off_t end = ::lseek(m_descriptor, 0, SEEK_END);
    if (end > 0) {
        m_size = static_cast<std::uint64_t>(end);
    } else {
        bool proc_file = m_path.compare(0, 5, L"/proc") == 0;
        m_size = (errno == EINVAL && proc_file) ? proc_file_size : 0;
    }
    ::lseek(m_descriptor, 0, SEEK_SET);
}

bool fileio::read(std::vector<std::uint8_t>& out, std::int64_t count, std::uint64_t offset)
{
    if (!m_is_open || m_size <= offset) return false;
    if (count <= 0) return true;
    auto wanted = static_cast<std::uint64_t>(count);

    if (m_memory_mode) {
        std::uint64_t length = std::min<std::uint64_t>(wanted, m_memory.size() - offset);
        out.assign(m_memory.begin() + static_cast<std::ptrdiff_t>(offset),
                   m_memory.begin() + static_cast<std::ptrdiff_t>(offset + length));
        m_position = offset + length;
        return true;
    }

    // A folder opens, but has no bytes to give. Its end as the file system
    // reports it can be huge (ext4 answers 2^63 - 1): allocate nothing for it.
    if (m_is_directory) return false;
    // Reads follow each other through a file; seek only to go elsewhere.
    off_t at = static_cast<off_t>(offset);
    if (offset != m_position) at = ::lseek(m_descriptor, at, SEEK_SET);
    if (at < 0) return false;
    std::uint64_t length = std::min<std::uint64_t>(m_size - static_cast<std::uint64_t>(at), wanted);
    try {
        if (out.size() != length) out.resize(length);
    } catch (std::exception const&) {
        return false;
    }

    std::uint64_t done = 0;
    while (done < length) {
        std::size_t chunk = static_cast<std::size_t>(std::min<std::uint64_t>(length - done, read_chunk));
        ssize_t got = ::read(m_descriptor, out.data() + done, chunk);
        if (got < 1) break;
        done += static_cast<std::uint64_t>(got);
    }
    m_position = static_cast<std::uint64_t>(at) + done;
    // A short read keeps what arrived; when nothing did, zeroes stand for it.
    if (done > 0 && done < length) out.resize(done);
    if (done == 0) std::fill(out.begin(), out.end(), std::uint8_t{0});
    return true;
}

std::int64_t fileio::read_at(std::uint8_t* buffer, std::size_t count, std::uint64_t offset)
{
    if (!m_is_open || m_is_directory || m_memory_mode || buffer == nullptr) return -1;
    std::size_t done = 0;
    while (done < count) {
        ssize_t const got = ::pread(m_descriptor, buffer + done, count - done, static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return -1;
        if (got == 0) break;
        done += static_cast<std::size_t>(got);
    }
    return static_cast<std::int64_t>(done);
}

bool fileio::append(std::uint8_t const* data, std::uint32_t count)
{
    if (!m_is_open || data == nullptr) return false;
    if (count == 0) return true;
    if (m_memory_mode) {
        m_memory.insert(m_memory.end(), data, data + count);
        m_size = m_position = m_memory.size();
        return true;
    }
    // Every write goes to the end, so the file only ever grows.
    m_position = unknown_position;
    if (::lseek(m_descriptor, 0, SEEK_END) < 0) return false;
    std::uint32_t done = 0;
    while (done < count) {
        ssize_t put = ::write(m_descriptor, data + done, count - done);
        if (put < 1) return false;
        done += static_cast<std::uint32_t>(put);
    }
    off_t end = ::lseek(m_descriptor, 0, SEEK_END);
    if (end >= 0) m_size = m_position = static_cast<std::uint64_t>(end);
    return true;
}

bool fileio::append(std::vector<std::uint8_t> const& data)
{
    if (data.size() > UINT32_MAX) return false;
    static std::uint8_t const nothing = 0;
    return append(data.empty() ? &nothing : data.data(), static_cast<std::uint32_t>(data.size()));
}

bool fileio::append_stream(std::ostringstream const& stream)
{
    std::string text = stream.str();
    if (text.size() > UINT32_MAX) return false;
    return append(reinterpret_cast<std::uint8_t const*>(text.data()), static_cast<std::uint32_t>(text.size()));
}

bool fileio::finish_output() { return m_stream == nullptr || m_stream->finish(); }

std::ostream* fileio::output_stream()
{
    if (!m_is_open) return nullptr;
    m_stream = std::make_unique<fileio_output>(*this, results_area_size, true);
    return m_stream.get();
}

void fileio::close()
{
    // The stream goes first: its destruction writes the last of the put area.
    m_stream.reset();
    if (m_memory_mode) {
        m_memory.clear();
        m_size = m_position = 0;
        return;
    }
    if (m_descriptor >= 0) ::close(m_descriptor);
    m_descriptor = -1;
    m_size = 0;
    m_writable = m_is_open = m_is_directory = false;
    m_path.clear();
}

void fileio::use_memory()
{
    close();
    m_memory_mode = true;
    m_is_open = m_writable = true;
}

// The put area.

template <typename char_type>
streambuf_generic_output<char_type>::streambuf_generic_output(std::size_t area_size)
    : m_area(std::max<std::size_t>(area_size, 2))
{
    this->setp(m_area.data(), m_area.data() + m_area.size() - 1);
}

template <typename char_type>
int streambuf_generic_output<char_type>::sync()
{
    return flush_put_area();
}

template <typename char_type>
typename streambuf_generic_output<char_type>::int_type streambuf_generic_output<char_type>::overflow(int_type c)
{
    if (!m_ok) return traits::eof();
    bool is_eof = traits::eq_int_type(c, traits::eof());
    if (!is_eof) {
        // The slack byte behind epptr() guarantees room here.
        *this->pptr() = traits::to_char_type(c);
        this->pbump(1);
    }
    char_type const* data = this->pbase();
    auto remaining = static_cast<int>(this->pptr() - this->pbase());
    while (remaining > 0) {
        int taken = write_bytes(data, remaining);
        if (taken < 1 || taken > remaining) {
            // The output is lost; the pointers go back to the area so that no
            // later put can run past it.
            m_ok = false;
            this->setp(m_area.data(), m_area.data() + m_area.size() - 1);
            return traits::eof();
        }
        data += taken;
        remaining -= taken;
    }
    this->setp(m_area.data(), m_area.data() + m_area.size() - 1);
    return is_eof ? 0 : c;
}

template <typename char_type>
int streambuf_generic_output<char_type>::flush_put_area()
{
    if (!m_ok) return 0;
    return traits::eq_int_type(overflow(traits::eof()), traits::eof()) ? -1 : 0;
}

template class streambuf_generic_output<char>;

fileio_ostream::fileio_ostream(fileio& file, std::size_t area_size)
    : streambuf_generic_output<char>(area_size), m_file(file)
{
}

fileio_ostream::~fileio_ostream() { flush_put_area(); }

int fileio_ostream::write_bytes(char const* data, int count)
{
    if (count < 0) return -1;
    bool written = m_file.append(reinterpret_cast<std::uint8_t const*>(data), static_cast<std::uint32_t>(count));
    return written ? count : -1;
}

fileio_stats_ostream::fileio_stats_ostream(std::uint64_t& sum, std::size_t area_size)
    : streambuf_generic_output<char>(area_size), m_sum(sum)
{
}

fileio_stats_ostream::~fileio_stats_ostream() { flush_put_area(); }

int fileio_stats_ostream::write_bytes(char const* data, int count)
{
    for (int i = 0; i < count; ++i) m_sum += static_cast<unsigned char>(data[i]);
    return count;
}

fileio_output::fileio_output(fileio& file, std::size_t area_size, bool file_open)
    : std::ostream(nullptr), m_buffer(file, area_size)
{
    if (file_open) rdbuf(&m_buffer);
}

fileio_output::~fileio_output() { flush(); }

fileio_stats_output::fileio_stats_output(std::uint64_t& sum, std::size_t area_size)
    : std::ostream(nullptr), m_buffer(sum, area_size)
{
    rdbuf(&m_buffer);
}

fileio_stats_output::~fileio_stats_output() { flush(); }

} // namespace uni

std::ostream& null_out_stream()
{
    static null_out_buf buffer;
    static std::ostream stream(&buffer);
    return stream;
}

bool read_file_prefix(std::string const& path, std::uint32_t limit, std::vector<std::uint8_t>& out)
{
    // The buffer keeps its size until the read sets it: one used for file
    // after file then has only its growth filled with zeroes, not every file.
    uni::fileio file;
    if (!path.empty() && limit != 0) file.open(path, /*write=*/false, /*truncate=*/false);
    // 32-bit arithmetic: a file of exactly 4 GiB counts as empty.
    auto const low_size = file.is_open() ? static_cast<std::uint32_t>(file.size()) : 0;
    if (low_size == 0 || !file.read(out, std::min(low_size, limit), 0)) {
        out.clear();
        return false;
    }
    return true;
}

bool read_whole_file(std::vector<std::uint8_t>& out, std::string const& path, std::uint32_t count)
{
    out.clear();
    if (path.empty()) return false;
    uni::fileio file(path, /*write=*/false, /*truncate=*/false);
    if (!file.is_open()) return false;
    file.read(out, static_cast<std::int64_t>(std::min<std::uint64_t>(file.size(), count)), 0);
    file.close();
    return !out.empty();
}

bool make_directory(std::string const& path)
{
    if (path.empty()) return false;
    ::umask(0);
    return ::mkdir(path.c_str(), 0777) == 0 || errno == EEXIST;
}

bool same_file(std::string const& first, std::string const& second)
{
    struct stat a {};
    struct stat b {};
    return !first.empty() && !second.empty() && ::stat(first.c_str(), &a) == 0 && ::stat(second.c_str(), &b) == 0 &&
           a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

bool file_facts_of(std::string const& path, file_facts& facts)
{
    facts = file_facts{};
    // One look-up of the path gives the stat fields and the birth time.
    struct statx info {};
    if (path.empty() || ::statx(AT_FDCWD, path.c_str(), AT_STATX_SYNC_AS_STAT, STATX_BASIC_STATS | STATX_BTIME, &info) != 0)
        return false;
    facts.size = info.stx_size;
    facts.mode = info.stx_mode;
    facts.changed = static_cast<std::uint64_t>(info.stx_ctime.tv_sec);
    facts.modified = static_cast<std::uint64_t>(info.stx_mtime.tv_sec);
    facts.accessed = static_cast<std::uint64_t>(info.stx_atime.tv_sec);
    // Ext4, XFS and Btrfs keep a birth time; others leave the mask bit clear.
    facts.born_known = (info.stx_mask & STATX_BTIME) != 0;
    if (facts.born_known) {
        facts.born_seconds = info.stx_btime.tv_sec;
        facts.born_nanoseconds = info.stx_btime.tv_nsec;
    }
    return true;
}

bool file_stat(std::wstring const& path, std::uint64_t& size, std::uint32_t& mode, std::uint64_t& changed,
               std::uint64_t& modified, std::uint64_t& accessed)
{
    file_facts facts;
    bool const found = file_facts_of(wide_to_utf8(path), facts);
    size = facts.size, mode = facts.mode, changed = facts.changed, modified = facts.modified, accessed = facts.accessed;
    return found;
}
