#include "support/prefetch_builder.h"

#include <algorithm>

namespace {

constexpr std::size_t header_size = 228;

class writer {
public:
    std::vector<std::uint8_t> bytes = std::vector<std::uint8_t>(header_size, 0);

    std::uint32_t pos() const { return static_cast<std::uint32_t>(bytes.size()); }
    void pad_to(std::size_t size)
    {
        if (bytes.size() < size) bytes.resize(size, 0);
    }
    void align8() { pad_to((bytes.size() + 7) & ~std::size_t{7}); }
    void append_u16(std::uint16_t value)
    {
        bytes.push_back(static_cast<std::uint8_t>(value));
        bytes.push_back(static_cast<std::uint8_t>(value >> 8));
    }
    void append_text(std::u16string const& text, bool terminate)
    {
        for (char16_t unit : text) append_u16(unit);
        if (terminate) append_u16(0);
    }
};

void put_le(std::vector<std::uint8_t>& bytes, std::size_t offset, std::uint64_t value, int width)
{
    if (bytes.size() < offset + static_cast<std::size_t>(width)) bytes.resize(offset + static_cast<std::size_t>(width), 0);
    for (int i = 0; i < width; ++i) bytes[offset + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(value >> (8 * i));
}

void write_header(writer& w, pf_fields const& fields, std::uint32_t metrics_offset, std::uint32_t metrics_count)
{
    auto& b = w.bytes;
    put_le(b, 0, fields.version, 4);
    b[4] = 'S', b[5] = 'C', b[6] = 'C', b[7] = 'A';
    put_le(b, 8, 0x11, 4);
    std::size_t const name_units = std::min<std::size_t>(fields.exe_name.size(), 30);
    for (std::size_t i = 0; i < name_units; ++i) put_le(b, 16 + 2 * i, fields.exe_name[i], 2);
    put_le(b, 76, 0xd8414f97, 4);
    put_le(b, 84, metrics_offset, 4);
    put_le(b, 88, metrics_count, 4);
    switch (fields.version) {
    case 17:
        put_le(b, 120, fields.last_run, 8);
        put_le(b, 144, fields.run_count, 4);
        break;
    case 23:
        put_le(b, 128, fields.last_run, 8);
        put_le(b, 152, fields.run_count, 4);
        break;
    default:
        // Windows 8 and 10; unknown versions get the same bytes, which a
        // reader must then leave alone.
        for (std::size_t i = 0; i < 8; ++i) put_le(b, 128 + 8 * i, fields.run_slots[i], 8);
        put_le(b, fields.version == 30 && metrics_offset == 296 ? 200 : 208, fields.run_count, 4);
        break;
    }
}

void write_volume(writer& w, pf_image& image, pf_volume_fields const& volume, std::size_t record_offset)
{
    if (!image.path_offsets.empty()) w.align8();
    std::uint32_t const path_pos = w.pos();
    image.path_offsets.push_back(path_pos);
    w.append_text(volume.device_path, volume.terminate_path);
    if (volume.file_refs.empty() && volume.directories.empty() && !volume.directory_count) {
        // Nothing behind the path: no padding, so that a path without its
        // zero unit can run to the end of the buffer.
    } else {
        w.align8();
    }
    std::uint32_t const refs_pos = w.pos();
    w.bytes.insert(w.bytes.end(), volume.file_refs.begin(), volume.file_refs.end());
    if (!volume.file_refs.empty()) w.align8();
    std::uint32_t const dirs_pos = w.pos();
    image.dir_offsets.push_back(dirs_pos);
    for (auto const& dir : volume.directories) {
        for (std::uint32_t i = 0; i < volume.zero_words_before_dirs; ++i) w.append_u16(0);
        w.append_u16(static_cast<std::uint16_t>(dir.size()));
        w.append_text(dir, true);
    }
    auto& b = w.bytes;
    std::uint32_t const base = image.volumes_offset;
    put_le(b, record_offset + 0, path_pos - base, 4);
    put_le(b, record_offset + 4, volume.device_path.size(), 4);
    put_le(b, record_offset + 8, volume.creation_time, 8);
    put_le(b, record_offset + 16, volume.serial, 4);
    put_le(b, record_offset + 20, refs_pos - base, 4);
    put_le(b, record_offset + 24, volume.file_refs.size(), 4);
    put_le(b, record_offset + 28, dirs_pos - base, 4);
    put_le(b, record_offset + 32, volume.directory_count.value_or(static_cast<std::uint32_t>(volume.directories.size())), 4);
}

} // namespace

void pf_image::put_u16(std::size_t offset, std::uint16_t value) { put_le(bytes, offset, value, 2); }
void pf_image::put_u32(std::size_t offset, std::uint32_t value) { put_le(bytes, offset, value, 4); }
void pf_image::put_u64(std::size_t offset, std::uint64_t value) { put_le(bytes, offset, value, 8); }

std::uint32_t pf_record_size(std::uint32_t version)
{
    switch (version) {
    case 23:
    case 26:
        return 104;
    case 30:
        return 96;
    default:
        return 40;
    }
}

std::uint32_t pf_default_metrics_offset(std::uint32_t version)
{
    switch (version) {
    case 17:
        return 152;
    case 23:
        return 240;
    default:
        return 304;
    }
}

pf_image build_prefetch(pf_fields const& fields)
{
    pf_image image;
    writer w;
    std::uint32_t const metrics_offset = fields.metrics_offset.value_or(pf_default_metrics_offset(fields.version));
    auto const strings = static_cast<std::uint32_t>(fields.file_strings.size());
    write_header(w, fields, metrics_offset, fields.metrics_count.value_or(strings));

    // The metrics array (one zeroed entry per string) is not decoded, only
    // skipped; it starts behind the fields that the readers look at.
    w.pad_to(std::max<std::size_t>(metrics_offset, header_size) + strings * (fields.version == 17 ? 20u : 32u));
    image.strings_offset = w.pos();
    for (std::size_t i = 0; i < fields.file_strings.size(); ++i) {
        image.string_offsets.push_back(w.pos());
        w.append_text(fields.file_strings[i], i + 1 < fields.file_strings.size() || fields.terminate_last_string);
    }
    w.align8();
    w.pad_to(w.bytes.size() + fields.volumes_shift);
    image.volumes_offset = w.pos();
    image.record_size = pf_record_size(fields.version);
    w.pad_to(w.bytes.size() + fields.volumes.size() * image.record_size);
    for (std::size_t i = 0; i < fields.volumes.size(); ++i)
        write_volume(w, image, fields.volumes[i], image.volumes_offset + i * image.record_size);

    image.bytes = std::move(w.bytes);
    image.put_u32(100, image.strings_offset);
    image.put_u32(104, image.volumes_offset - image.strings_offset);
    image.put_u32(108, image.volumes_offset);
    image.put_u32(112, static_cast<std::uint32_t>(fields.volumes.size()));
    image.put_u32(116, image.size() - image.volumes_offset);
    image.put_u32(12, fields.declared_size.value_or(image.size()));
    return image;
}

pf_fields typical_prefetch(std::uint32_t version, std::uint32_t metrics_offset)
{
    pf_fields fields;
    fields.version = version;
    if (version == 30) fields.metrics_offset = metrics_offset;
    fields.exe_name = u"NOTEPAD.EXE";
    fields.run_count = 7;
    fields.last_run = 131000000000000000ULL;
    fields.run_slots = {131000000000000000ULL, 130990000000000000ULL, 130980000000000000ULL};
    fields.file_strings = {u"\\DEVICE\\HARDDISKVOLUME2\\WINDOWS\\SYSTEM32\\NTDLL.DLL",
                         u"\\DEVICE\\HARDDISKVOLUME2\\WINDOWS\\SYSTEM32\\NOTEPAD.EXE",
                         u"\\DEVICE\\HARDDISKVOLUME3\\USERS\\EXAMINER\\NOTES.TXT"};
    fields.volumes = {
        {u"\\DEVICE\\HARDDISKVOLUME2", 130900000000000000ULL, 0x12345678, std::vector<std::uint8_t>(24, 0xab),
         {u"\\DEVICE\\HARDDISKVOLUME2\\WINDOWS", u"\\DEVICE\\HARDDISKVOLUME2\\WINDOWS\\SYSTEM32"}, {}, 0, true},
        {u"\\DEVICE\\HARDDISKVOLUME3", 130800000000000000ULL, 0x9abcdef0, std::vector<std::uint8_t>(16, 0xcd),
         {u"\\DEVICE\\HARDDISKVOLUME3\\USERS", u"\\DEVICE\\HARDDISKVOLUME3\\USERS\\EXAMINER"}, {}, 0, true},
    };
    return fields;
}
