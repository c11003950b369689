#include "evidence/vshadow_bridge.h"

#include <libbfio.h>
#include <libvshadow.h>

#include <array>
#include <cstdint>
#include <cstdio>

#include "evidence/image_backends.h"
#include "evidence/library_text.h"

namespace {

// libbfio's view of a byte range: a position within it, moved by seeks.
struct range_handle {
    byte_range const* range = nullptr;
    std::uint64_t position = 0;
    bool open = false;
};

range_handle* handle_of(intptr_t* io_handle) { return reinterpret_cast<range_handle*>(io_handle); }

int free_handle(intptr_t** io_handle, libbfio_error_t**)
{
    delete handle_of(*io_handle);
    *io_handle = nullptr;
    return 1;
}

int clone_handle(intptr_t** copy, intptr_t* source, libbfio_error_t**)
{
    *copy = reinterpret_cast<intptr_t*>(new range_handle{*handle_of(source)});
    return 1;
}

int open_handle(intptr_t* io_handle, int, libbfio_error_t**)
{
    handle_of(io_handle)->open = true;
    handle_of(io_handle)->position = 0;
    return 1;
}

int close_handle(intptr_t* io_handle, libbfio_error_t**)
{
    handle_of(io_handle)->open = false;
    return 0;
}

// Every read is cut to the range, so nothing outside the partition is read.
ssize_t read_handle(intptr_t* io_handle, uint8_t* into, size_t length, libbfio_error_t**)
{
    range_handle& h = *handle_of(io_handle);
    std::int64_t const got = read_clamped(*h.range, h.position, into, length);
    if (got > 0) h.position += static_cast<std::uint64_t>(got);
    return static_cast<ssize_t>(got);
}

ssize_t write_handle(intptr_t*, uint8_t const*, size_t, libbfio_error_t**) { return -1; }

off64_t seek_handle(intptr_t* io_handle, off64_t offset, int whence, libbfio_error_t**)
{
    range_handle& h = *handle_of(io_handle);
    off64_t const base = whence == SEEK_CUR   ? static_cast<off64_t>(h.position)
                         : whence == SEEK_END ? static_cast<off64_t>(h.range->size)
                                              : 0;
    if (whence != SEEK_SET && whence != SEEK_CUR && whence != SEEK_END) return -1;
    if ((offset > 0 && base > INT64_MAX - offset) || base + offset < 0) return -1;
    h.position = static_cast<std::uint64_t>(base + offset);
    return base + offset;
}

int handle_exists(intptr_t*, libbfio_error_t**) { return 1; }

int handle_is_open(intptr_t* io_handle, libbfio_error_t**) { return handle_of(io_handle)->open ? 1 : 0; }

int handle_size(intptr_t* io_handle, size64_t* size, libbfio_error_t**)
{
    *size = handle_of(io_handle)->range->size;
    return 1;
}

// The library's message, on one line, and the error freed.
std::string message_of(libvshadow_error_t*& error)
{
    std::array<char, 512> text{};
    if (error == nullptr || libvshadow_error_sprint(error, text.data(), text.size()) < 0) text[0] = '\0';
    libvshadow_error_free(&error);
    return library_message_line(text.data());
}

// A GUID in its stored mixed-endian form, as vshadowinfo prints it.
std::string guid_text(std::array<std::uint8_t, 16> const& g)
{
    char text[37];
    std::snprintf(text, sizeof text, "%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x", g[3], g[2],
                  g[1], g[0], g[5], g[4], g[7], g[6], g[8], g[9], g[10], g[11], g[12], g[13], g[14], g[15]);
    return text;
}

// The shadow copies as libvshadow reads them.
class vshadow_volume final : public shadow_volume_backend {
public:
    vshadow_volume();
    ~vshadow_volume() override;
    vshadow_volume(vshadow_volume const&) = delete;
    vshadow_volume& operator=(vshadow_volume const&) = delete;

    bool open(byte_range const& volume) override;
    std::vector<shadow_store> const& stores() const override { return m_stores; }
    std::string const& problem() const override { return m_problem; }

private:
    struct handles;
    std::unique_ptr<handles> m_handles;
    std::vector<shadow_store> m_stores;
    std::string m_problem;
};

} // namespace

std::unique_ptr<shadow_volume_backend> vshadow_volume_backend() { return std::make_unique<vshadow_volume>(); }

struct vshadow_volume::handles {
    libbfio_handle_t* file = nullptr;
    libvshadow_volume_t* volume = nullptr;
    std::vector<libvshadow_store_t*> stores;
    bool opened = false;

    ~handles()
    {
        for (libvshadow_store_t*& store : stores) libvshadow_store_free(&store, nullptr);
        if (opened) libvshadow_volume_close(volume, nullptr);
        if (volume != nullptr) libvshadow_volume_free(&volume, nullptr);
        if (file != nullptr) libbfio_handle_free(&file, nullptr);
    }
};

vshadow_volume::vshadow_volume() : m_handles(std::make_unique<handles>()) {}
vshadow_volume::~vshadow_volume() = default;

bool vshadow_volume::open(byte_range const& volume)
{
    m_handles = std::make_unique<handles>();
    m_stores.clear();
    m_problem.clear();
    handles& h = *m_handles;
    auto* io_handle = reinterpret_cast<intptr_t*>(new range_handle{&volume, 0, false});
    if (libbfio_handle_initialize(&h.file, io_handle, free_handle, clone_handle, open_handle, close_handle, read_handle,
                                  write_handle, seek_handle, handle_exists, handle_is_open, handle_size,
                                  LIBBFIO_FLAG_IO_HANDLE_MANAGED | LIBBFIO_FLAG_IO_HANDLE_CLONE_BY_FUNCTION,
                                  nullptr) != 1) {
        delete handle_of(io_handle);
        m_problem = "out of memory";
        return false;
    }
    libvshadow_error_t* error = nullptr;
    int const signature = libvshadow_check_volume_signature_file_io_handle(h.file, &error);
    if (signature != 1) {
        if (signature < 0) m_problem = message_of(error);
        libvshadow_error_free(&error);
        return false;
    }
    int count = 0;
    if (libvshadow_volume_initialize(&h.volume, &error) != 1 ||
        libvshadow_volume_open_file_io_handle(h.volume, h.file, LIBVSHADOW_OPEN_READ, &error) != 1 ||
        (h.opened = true, libvshadow_volume_get_number_of_stores(h.volume, &count, &error) != 1)) {
        m_problem = message_of(error);
        return false;
    }
    for (int index = 0; index < count; ++index) {
        shadow_store store;
        store.number = static_cast<std::uint32_t>(index + 1);
        libvshadow_store_t* opened = nullptr;
        std::array<std::uint8_t, 16> guid{};
        size64_t size = 0;
        if (libvshadow_volume_get_store(h.volume, index, &opened, &error) != 1 ||
            libvshadow_store_get_identifier(opened, guid.data(), guid.size(), &error) != 1 ||
            libvshadow_store_get_creation_time(opened, &store.created, &error) != 1 ||
            libvshadow_store_get_size(opened, &size, &error) != 1) {
            store.problem = message_of(error);
        } else if (libvshadow_store_has_in_volume_data(opened, &error) != 1) {
            libvshadow_error_free(&error);
            store.problem = "its data lies on another volume";
        }
        if (opened != nullptr) h.stores.push_back(opened);
        store.identifier = guid_text(guid);
        if (store.problem.empty())
            store.bytes = {size, [opened](std::uint64_t offset, std::uint8_t* into, std::size_t length) {
                               libvshadow_error_t* failure = nullptr;
                               ssize_t const got = libvshadow_store_read_buffer_at_offset(
                                   opened, into, length, static_cast<off64_t>(offset), &failure);
                               libvshadow_error_free(&failure);
                               return got == static_cast<ssize_t>(length);
                           }};
        m_stores.push_back(std::move(store));
    }
    return true;
}
