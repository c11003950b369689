// Writes a handful of realistic Prefetch files, one per layout, into the
// folder named by the first argument. With "--seeds" it adds damaged variants
// for use as a fuzzing corpus.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/container_encoder.h"
#include "support/prefetch_builder.h"

namespace {

constexpr std::uint64_t hour = 36000000000ULL;

struct sample {
    char const* file_name;
    std::uint32_t version;
    std::uint32_t metrics_offset;
    std::u16string exe_name;
    std::u16string volume; // device path as that Windows version writes it
    std::uint64_t last_run;
};

std::u16string operator+(std::u16string const& a, char16_t const* b) { return a + std::u16string(b); }

pf_fields fields_of(sample const& s)
{
    pf_fields fields;
    fields.version = s.version;
    fields.metrics_offset = s.metrics_offset;
    fields.exe_name = s.exe_name;
    fields.run_count = 23;
    fields.last_run = s.last_run;
    for (std::size_t i = 0; i < 6; ++i) fields.run_slots[i] = s.last_run - i * 26 * hour;
    std::u16string const system32 = s.volume + u"\\WINDOWS\\SYSTEM32\\";
    fields.file_strings = {system32 + u"NTDLL.DLL", system32 + u"KERNEL32.DLL", system32 + u"KERNELBASE.DLL",
                         system32 + s.exe_name.c_str(), system32 + u"LOCALE.NLS", system32 + u"EN-US\\" +
                         s.exe_name.c_str() + u".MUI", s.volume + u"\\USERS\\ANALYST\\DESKTOP\\CASE NOTES.TXT"};
    pf_volume_fields volume;
    volume.device_path = s.volume;
    volume.creation_time = s.last_run - 9000 * hour;
    volume.serial = 0x5a3c90e1;
    volume.file_refs.assign(48, 0);
    volume.directories = {s.volume + u"\\USERS", s.volume + u"\\USERS\\ANALYST", s.volume + u"\\USERS\\ANALYST\\DESKTOP",
                          s.volume + u"\\WINDOWS", s.volume + u"\\WINDOWS\\SYSTEM32",
                          s.volume + u"\\WINDOWS\\SYSTEM32\\EN-US"};
    fields.volumes = {volume};
    return fields;
}

bool write_bytes(std::string const& path, std::vector<std::uint8_t> const& bytes)
{
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<char const*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return static_cast<bool>(out);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: make_samples <folder> [--seeds]\n");
        return 1;
    }
    std::string const dir = std::string(argv[1]) + "/";
    std::error_code error;
    std::filesystem::create_directories(argv[1], error);
    bool const seeds = argc > 2 && std::string(argv[2]) == "--seeds";

    std::u16string const hdd1 = u"\\DEVICE\\HARDDISKVOLUME1";
    std::u16string const volume_guid = u"\\VOLUME{01d2a6f36f1b3b2c-a8c4b5f2}";
    sample const samples[] = {
        {"NOTEPAD.EXE-336351A9.pf", 17, 152, u"NOTEPAD.EXE", hdd1, 128500000000000000ULL},
        {"CMD.EXE-4A81B364.pf", 23, 240, u"CMD.EXE", u"\\DEVICE\\HARDDISKVOLUME2", 129900000000000000ULL},
        {"CALC.EXE-77FDF17F.pf", 26, 304, u"CALC.EXE", u"\\DEVICE\\HARDDISKVOLUME2", 130300000000000000ULL},
        {"MSPAINT.EXE-8F2A1C3D.pf", 30, 304, u"MSPAINT.EXE", volume_guid, 131300000000000000ULL},
        {"WORDPAD.EXE-2B4E7D19.pf", 30, 296, u"WORDPAD.EXE", volume_guid, 131900000000000000ULL},
        {"SNIPPINGTOOL.EXE-4E1A2B3C.pf", 31, 296, u"SNIPPINGTOOL.EXE", volume_guid, 133400000000000000ULL},
    };
    bool ok = true;
    for (auto const& s : samples) {
        pf_image image = build_prefetch(fields_of(s));
        // Windows 10 and 11 write their Prefetch files as "MAM" containers.
        ok = write_bytes(dir + s.file_name, s.version >= 30 ? encode_mam(image.bytes) : image.bytes) && ok;
        if (!seeds) continue;
        std::string const base = dir + "seed-" + s.file_name;
        pf_image cut = image;
        cut.bytes.resize(cut.size() - 37);
        ok = write_bytes(base + ".cut", cut.bytes) && ok;
        pf_image unknown = image;
        unknown.put_u32(0, 32);
        unknown.put_u32(84, 300);
        ok = write_bytes(base + ".unknown", unknown.bytes) && ok;
        pf_image counts = image;
        counts.put_u32(88, 0);
        counts.put_u32(image.volumes_offset + 32, 0xffff);
        ok = write_bytes(base + ".counts", counts.bytes) && ok;
    }
    return ok ? 0 : 1;
}
