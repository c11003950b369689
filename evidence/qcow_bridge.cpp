#include "evidence/qcow_bridge.h"

#include <libqcow.h>

#include <array>

#include "evidence/image_backends.h"
#include "evidence/library_text.h"

namespace {

// The library's message, on one line, and the error freed.
std::string message_of(libqcow_error_t*& error)
{
    std::array<char, 512> text{};
    if (error == nullptr || libqcow_error_sprint(error, text.data(), text.size()) < 0) text[0] = '\0';
    libqcow_error_free(&error);
    return library_message_line(text.data());
}

// The disk as libqcow reads it.
class libqcow_disk final : public qcow_disk_backend {
public:
    libqcow_disk();
    ~libqcow_disk() override;
    libqcow_disk(libqcow_disk const&) = delete;
    libqcow_disk& operator=(libqcow_disk const&) = delete;

    bool open(std::string const& path) override;
    std::string const& problem() const override { return m_problem; }
    byte_range const& bytes() const override { return m_bytes; }

private:
    struct handles;
    std::unique_ptr<handles> m_handles;
    byte_range m_bytes;
    std::string m_problem;
};

} // namespace

std::unique_ptr<qcow_disk_backend> libqcow_disk_backend() { return std::make_unique<libqcow_disk>(); }

bool qcow_signature_found(std::string const& path)
{
    libqcow_error_t* error = nullptr;
    int const found = libqcow_check_file_signature(path.c_str(), &error);
    libqcow_error_free(&error);
    return found == 1;
}

struct libqcow_disk::handles {
    libqcow_file_t* file = nullptr;
    bool opened = false;

    ~handles()
    {
        if (opened) libqcow_file_close(file, nullptr);
        if (file != nullptr) libqcow_file_free(&file, nullptr);
    }
};

libqcow_disk::libqcow_disk() : m_handles(std::make_unique<handles>()) {}
libqcow_disk::~libqcow_disk() = default;

bool libqcow_disk::open(std::string const& path)
{
    m_handles = std::make_unique<handles>();
    m_bytes = {};
    m_problem.clear();
    handles& h = *m_handles;
    libqcow_error_t* error = nullptr;
    size64_t size = 0;
    if (libqcow_file_initialize(&h.file, &error) != 1 ||
        libqcow_file_open(h.file, path.c_str(), LIBQCOW_OPEN_READ, &error) != 1 ||
        (h.opened = true, libqcow_file_get_media_size(h.file, &size, &error) != 1)) {
        m_problem = message_of(error);
        return false;
    }
    libqcow_file_t* file = h.file;
    m_bytes = {size, [file](std::uint64_t offset, std::uint8_t* into, std::size_t length) {
                   libqcow_error_t* failure = nullptr;
                   ssize_t const got =
                       libqcow_file_read_buffer_at_offset(file, into, length, static_cast<off64_t>(offset), &failure);
                   libqcow_error_free(&failure);
                   return got == static_cast<ssize_t>(length);
               }};
    return true;
}
