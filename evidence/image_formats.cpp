#include "evidence/image_formats.h"

#include <cstdint>
#include <string_view>
#include <vector>

#include "foundation/uni_fileio.h"

namespace {

using namespace std::string_view_literals;

struct format_signature {
    std::size_t offset;
    std::string_view magic;
    char const* reason;
};

// One row per format, by the bytes it begins with.
constexpr format_signature signatures[] = {
    {0, "vhdxfile"sv, "VHDX image, which kito does not read; convert it to raw (qemu-img convert -O raw)"},
    {64, "\x7f\x10\xda\xbe"sv,
     "VirtualBox VDI image, which kito does not read; convert it to raw (qemu-img convert -O raw)"},
    {0, "EVF2\r\n\x81\0"sv, "EWF2 (Ex01) image, which kito does not read; convert it to E01 or raw"},
    {0, "LVF\x09\r\n\xff\0"sv, "logical evidence file (L01), which holds files, not a disk"},
    {0, "\x1f\x8b"sv, "gzip archive; unpack the disk image first"},
    {0,
     "\xfd"
     "7zXZ\0"sv,
     "xz archive; unpack the disk image first"},
    {0, "BZh"sv, "bzip2 archive; unpack the disk image first"},
    {0, "PK\x03\x04"sv, "zip archive; unpack the disk image first"},
    {0, "7z\xbc\xaf\x27\x1c"sv, "7-Zip archive; unpack the disk image first"},
};

constexpr std::size_t header_bytes = 80;

} // namespace

std::string unsupported_image_format(std::string const& path)
{
    uni::fileio file(path, /*write=*/false, /*truncate=*/false);
    std::vector<std::uint8_t> bytes;
    if (!file.is_open() || !file.read(bytes, header_bytes, 0)) return "";
    std::string_view const head(reinterpret_cast<char const*>(bytes.data()), bytes.size());
    for (format_signature const& format : signatures)
        if (head.size() >= format.offset + format.magic.size() &&
            head.substr(format.offset, format.magic.size()) == format.magic)
            return format.reason;
    return "";
}
