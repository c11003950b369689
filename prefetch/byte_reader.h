#pragma once
// The one door to input bytes: every little-endian read of a buffer asks here
// whether it lies wholly inside, and reads nothing if it does not.
#include <cstddef>
#include <cstdint>
#include <cstring>

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

// The `count` bytes from offset, if they lie wholly inside.
inline bool read_bytes(byte_view buf, std::uint64_t offset, std::uint64_t count, byte_view& out)
{
    if (!buf.has(offset, count)) return false;
    out = byte_view{buf.data + offset, static_cast<std::size_t>(count)};
    return true;
}

// The UTF-16LE units from offset up to the first zero unit, as far as whole
// units lie inside; `terminated` says whether a zero unit ended them.
inline byte_view read_units_to_zero(byte_view buf, std::uint64_t offset, bool& terminated)
{
    terminated = false;
    if (!buf.has(offset, 0)) return byte_view{};
    // The end of the last whole unit: every unit before it lies inside.
    std::uint64_t const last = offset + ((buf.size - offset) & ~std::uint64_t{1});
    std::uint64_t end = offset;
    // Four units a word while none of them is zero: the test below is true
    // exactly when one of the word's four 16-bit lanes is zero, whatever
    // order the host keeps bytes in; the unit loop then finds which.
    for (std::uint64_t four = 0; end + 8 <= last; end += 8) {
        std::memcpy(&four, buf.data + end, 8);
        if (((four - 0x0001000100010001ULL) & ~four & 0x8000800080008000ULL) != 0) break;
    }
    while (end < last && (buf.data[end] | buf.data[end + 1]) != 0) end += 2;
    terminated = end < last;
    return byte_view{buf.data + offset, static_cast<std::size_t>(end - offset)};
}
