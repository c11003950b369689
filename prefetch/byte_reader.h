#pragma once
// The one door to input bytes: every little-endian read of a buffer asks here
// whether it lies wholly inside, and reads nothing if it does not.
#include <cstddef>
#include <cstdint>

struct byte_view {
    std::uint8_t const* data = nullptr;
    std::size_t size = 0;

    bool has(std::uint64_t offset, std::uint64_t count) const
    {
        return data != nullptr && offset <= size && count <= size - offset;
    }
};

inline bool read_u8(byte_view buf, std::uint64_t offset, std::uint8_t& out)
{
    if (!buf.has(offset, 1)) return false;
    out = buf.data[offset];
    return true;
}

inline bool read_u16(byte_view buf, std::uint64_t offset, std::uint16_t& out)
{
    if (!buf.has(offset, 2)) return false;
    out = static_cast<std::uint16_t>(buf.data[offset] | (buf.data[offset + 1] << 8));
    return true;
}

inline bool read_u32(byte_view buf, std::uint64_t offset, std::uint32_t& out)
{
    if (!buf.has(offset, 4)) return false;
    out = 0;
    for (int i = 3; i >= 0; --i) out = (out << 8) | buf.data[offset + static_cast<unsigned>(i)];
    return true;
}

inline bool read_u64(byte_view buf, std::uint64_t offset, std::uint64_t& out)
{
    if (!buf.has(offset, 8)) return false;
    out = 0;
    for (int i = 7; i >= 0; --i) out = (out << 8) | buf.data[offset + static_cast<unsigned>(i)];
    return true;
}
