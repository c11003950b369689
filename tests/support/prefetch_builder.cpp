#include "support/prefetch_builder.h"

#include "support/container_encoder.h"

#include <algorithm>

namespace {

void put_le(std::vector<std::uint8_t>& b, std::size_t at, std::uint64_t value, std::size_t width)
{
    if (b.size() < at + width) b.resize(at + width, 0);
    for (std::size_t i = 0; i < width; ++i) b[at + i] = static_cast<std::uint8_t>(value >> (8 * i));
}
void align8(std::vector<std::uint8_t>& b) { b.resize((b.size() + 7) & ~std::size_t{7}, 0); }
void append_text(std::vector<std::uint8_t>& b, std::u16string const& text)
{
    for (char16_t unit : text) put_le(b, b.size(), unit, 2);
    put_le(b, b.size(), 0, 2);
}

} // namespace

void pf_image::put_u16(std::size_t offset, std::uint16_t value) { put_le(bytes, offset, value, 2); }
void pf_image::put_u32(std::size_t offset, std::uint32_t value) { put_le(bytes, offset, value, 4); }

pf_image build_prefetch(pf_fields const& f)
{
    pf_image image;
    auto& b = image.bytes;
    b.assign(228, 0);
    std::uint32_t const metrics_offset = f.metrics_offset.value_or(f.version == 17 ? 152 : f.version == 23 ? 240 : 304);
    put_le(b, 0, f.version, 4);
    std::copy_n("SCCA", 4, b.begin() + 4);
    put_le(b, 8, 0x11, 4);
    for (std::size_t i = 0; i < std::min<std::size_t>(f.exe_name.size(), 30); ++i) put_le(b, 16 + 2 * i, f.exe_name[i], 2);
    put_le(b, 76, 0xd8414f97, 4); // path hash
    put_le(b, 84, metrics_offset, 4);
    put_le(b, 88, f.file_strings.size(), 4);
    if (f.version == 17 || f.version == 23) {
        put_le(b, f.version == 17 ? 120 : 128, f.last_run, 8);
        put_le(b, f.version == 17 ? 144 : 152, f.run_count, 4);
    } else { // Windows 8, 10 and 11; unknown versions get the same bytes, which a reader must leave alone
        for (std::size_t i = 0; i < 8; ++i) put_le(b, 128 + 8 * i, f.run_slots[i], 8);
        put_le(b, (f.version == 30 || f.version == 31) && metrics_offset == 296 ? 200 : 208, f.run_count, 4);
    }
    // The metrics array: one entry per string, naming it by its offset in
    // the strings section and its length; from Vista on with a file reference.
    std::size_t const entry_size = f.version == 17 ? 20 : 32;
    image.metrics_offset = metrics_offset;
    b.resize(std::max<std::size_t>(metrics_offset, 228) + f.file_strings.size() * entry_size, 0);
    image.strings_offset = image.size();
    for (std::size_t i = 0; i < f.file_strings.size(); ++i) {
        std::size_t const entry = metrics_offset + i * entry_size, name = entry_size == 20 ? 8 : 12;
        put_le(b, entry + name, b.size() - image.strings_offset, 4);
        put_le(b, entry + name + 4, f.file_strings[i].size(), 4);
        if (entry_size == 32 && i < f.file_references.size()) put_le(b, entry + 24, f.file_references[i], 8);
        append_text(b, f.file_strings[i]);
    }
    align8(b);
    b.resize(b.size() + f.volumes_shift, 0);
    std::uint32_t const base = image.volumes_offset = image.size();
    image.record_size = f.version == 23 || f.version == 26 ? 104 : f.version == 30 || f.version == 31 ? 96 : 40;
    b.resize(b.size() + f.volumes.size() * image.record_size, 0);
    for (std::size_t i = 0; i < f.volumes.size(); ++i) {
        auto const& v = f.volumes[i];
        if (i > 0) align8(b);
        std::uint32_t const path = image.size();
        image.path_offsets.push_back(path);
        append_text(b, v.device_path);
        align8(b);
        std::uint32_t const refs = image.size();
        b.insert(b.end(), v.file_refs.begin(), v.file_refs.end());
        align8(b);
        std::uint32_t const dirs = image.size();
        for (auto const& dir : v.directories) put_le(b, b.size(), dir.size(), 2), append_text(b, dir);
        std::size_t const at = base + i * image.record_size;
        put_le(b, at, path - base, 4);
        put_le(b, at + 4, v.device_path.size(), 4);
        put_le(b, at + 8, v.creation_time, 8);
        put_le(b, at + 16, v.serial, 4);
        put_le(b, at + 20, refs - base, 4);
        put_le(b, at + 24, v.file_refs.size(), 4);
        put_le(b, at + 28, dirs - base, 4);
        put_le(b, at + 32, v.directories.size(), 4);
    }
    std::uint32_t const sections[][2] = {{12, image.size()}, {100, image.strings_offset}, {104, base - image.strings_offset},
        {108, base}, {112, static_cast<std::uint32_t>(f.volumes.size())}, {116, image.size() - base}};
    for (auto const& [at, value] : sections) image.put_u32(at, value);
    return image;
}

pf_fields typical_prefetch(std::uint32_t version)
{
    pf_fields f;
    f.version = version;
    f.exe_name = u"NOTEPAD.EXE";
    f.run_count = 7;
    f.last_run = 131000000000000000ULL;
    f.run_slots = {131000000000000000ULL, 130990000000000000ULL, 130980000000000000ULL};
    std::u16string const v2 = u"\\DEVICE\\HARDDISKVOLUME2", v3 = u"\\DEVICE\\HARDDISKVOLUME3";
    f.file_strings = {v2 + u"\\WINDOWS\\SYSTEM32\\NTDLL.DLL", v2 + u"\\WINDOWS\\SYSTEM32\\NOTEPAD.EXE",
                      v3 + u"\\USERS\\EXAMINER\\NOTES.TXT"};
    f.volumes = {{v2, 130900000000000000ULL, 0x12345678, std::vector<std::uint8_t>(24, 0xab),
                  {v2 + u"\\WINDOWS", v2 + u"\\WINDOWS\\SYSTEM32"}},
                 {v3, 130800000000000000ULL, 0x9abcdef0, std::vector<std::uint8_t>(16, 0xcd),
                  {v3 + u"\\USERS", v3 + u"\\USERS\\EXAMINER"}}};
    return f;
}

namespace {

constexpr std::uint64_t hour = 36000000000ULL;

// `versions`: how many versions of the program program_versions() writes.
struct sample_row { char const* name; std::uint32_t version, metrics_offset; std::u16string exe, volume; std::uint64_t last_run; int versions; };

std::vector<sample_row> sample_rows()
{
    std::u16string const hdd2 = u"\\DEVICE\\HARDDISKVOLUME2", guid = u"\\VOLUME{01d2a6f36f1b3b2c-a8c4b5f2}";
    return {
        {"NOTEPAD.EXE-336351A9.pf", 17, 152, u"NOTEPAD.EXE", u"\\DEVICE\\HARDDISKVOLUME1", 128500000000000000ULL, 1},
        {"CMD.EXE-4A81B364.pf", 23, 240, u"CMD.EXE", hdd2, 129900000000000000ULL, 1},
        {"CALC.EXE-77FDF17F.pf", 26, 304, u"CALC.EXE", hdd2, 130300000000000000ULL, 2},
        {"MSPAINT.EXE-8F2A1C3D.pf", 30, 304, u"MSPAINT.EXE", guid, 131300000000000000ULL, 3},
        {"WORDPAD.EXE-2B4E7D19.pf", 30, 296, u"WORDPAD.EXE", guid, 131900000000000000ULL, 1},
        {"SNIPPINGTOOL.EXE-4E1A2B3C.pf", 31, 296, u"SNIPPINGTOOL.EXE", guid, 133400000000000000ULL, 1},
    };
}

// The fields of a sample whose runs lie `later` runs of 26 hours after the sample's own.
pf_fields sample_fields(sample_row const& s, std::uint32_t later)
{
    pf_fields f;
    f.version = s.version, f.metrics_offset = s.metrics_offset, f.exe_name = s.exe, f.run_count = 23 + later;
    f.last_run = s.last_run + later * 26 * hour;
    for (std::size_t i = 0; i < 6; ++i) f.run_slots[i] = f.last_run - i * 26 * hour;
    if (s.version == 30 && s.metrics_offset == 296) f.run_slots[5] = 500000000000000000ULL; // past the year 3000
    if (s.version == 31) f.file_references = {0x0001000000006436ULL, 0, 0xfffeffffffffffffULL};
    std::u16string const users = s.volume + u"\\USERS", windows = s.volume + u"\\WINDOWS", system32 = windows + u"\\SYSTEM32";
    f.file_strings = {system32 + u"\\NTDLL.DLL", system32 + u"\\KERNEL32.DLL", system32 + u"\\KERNELBASE.DLL",
                      system32 + u"\\" + s.exe, system32 + u"\\LOCALE.NLS", system32 + u"\\EN-US\\" + s.exe + u".MUI",
                      users + u"\\ANALYST\\DESKTOP\\CASE NOTES.TXT"};
    f.volumes = {{s.volume, s.last_run - 9000 * hour, 0x5a3c90e1, std::vector<std::uint8_t>(48, 0),
                  {users, users + u"\\ANALYST", users + u"\\ANALYST\\DESKTOP", windows, system32, system32 + u"\\EN-US"}}};
    return f;
}

std::vector<std::uint8_t> as_written(pf_fields const& f, pf_image const& image)
{
    return f.version >= 30 ? encode_mam(image.bytes) : image.bytes;
}

} // namespace

std::vector<pf_sample> sample_files(bool seeds)
{
    std::vector<pf_sample> out;
    for (sample_row const& s : sample_rows()) {
        pf_fields const f = sample_fields(s, 0);
        pf_image image = build_prefetch(f);
        out.push_back({s.name, as_written(f, image)});
        if (!seeds) continue;
        std::string const seed = std::string("seed-") + s.name;
        out.push_back({seed + ".cut", std::vector<std::uint8_t>(image.bytes.begin(), image.bytes.end() - 37)});
        pf_image unknown = image, counts = image;
        unknown.put_u32(0, 32), unknown.put_u32(84, 300);
        counts.put_u32(88, 0), counts.put_u32(image.volumes_offset + 32, 0xffff);
        out.push_back({seed + ".unknown", unknown.bytes});
        out.push_back({seed + ".counts", counts.bytes});
    }
    return out;
}

std::vector<pf_version> program_versions()
{
    std::vector<pf_version> out;
    for (sample_row const& s : sample_rows()) {
        for (int k = 1; k <= s.versions; ++k) {
            // Each version three runs on from the one before: they share the other three.
            pf_fields const f = sample_fields(s, 3 * (k - 1));
            pf_version version{{std::string(s.name) + "." + std::to_string(k), as_written(f, build_prefetch(f))}, {}};
            for (std::uint64_t const run : f.run_slots)
                if (run != 0) version.runs.push_back(run);
            if (f.version < 26) version.runs = {f.last_run};
            out.push_back(version);
        }
    }
    return out;
}
