#pragma once
// Test-side writer of plain Prefetch buffers laid out the way Windows does it
// (header, metrics array, file strings, volume records, then each volume's
// path, file references and directory strings); the offsets it reports back
// let a test damage the result in one place.
#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct pf_volume_fields {
    std::u16string device_path;
    std::uint64_t creation_time = 0;
    std::uint32_t serial = 0;
    std::vector<std::uint8_t> file_refs;
    std::vector<std::u16string> directories;
};

struct pf_fields {
    std::uint32_t version = 30;
    std::optional<std::uint32_t> metrics_offset; // default: that of the version
    std::u16string exe_name;                     // more than 30 units are cut to 30
    std::uint32_t run_count = 0;
    std::uint64_t last_run = 0;                  // versions 17 and 23
    std::array<std::uint64_t, 8> run_slots{};    // other versions: u64 at 128..184
    std::vector<std::u16string> file_strings;
    std::vector<std::uint64_t> file_references; // NTFS reference of each string's metrics entry; 0 where absent
    std::vector<pf_volume_fields> volumes;
    std::uint32_t volumes_shift = 0;             // extra bytes before the volumes section
};

struct pf_image {
    std::vector<std::uint8_t> bytes;
    std::uint32_t metrics_offset = 0, strings_offset = 0, volumes_offset = 0, record_size = 0;
    std::vector<std::uint32_t> path_offsets; // where each device path begins

    std::uint32_t size() const { return static_cast<std::uint32_t>(bytes.size()); }
    // Overwrite a field; the buffer grows if the field lies past its end.
    void put_u16(std::size_t offset, std::uint16_t value);
    void put_u32(std::size_t offset, std::uint32_t value);
};

pf_image build_prefetch(pf_fields const& fields);
// A sound file of the version with three strings and two volumes.
pf_fields typical_prefetch(std::uint32_t version);

// The samples of tests/cases and the fuzzing seeds: one file a layout, as that Windows writes it, with
// seven strings and one volume (Windows 11's with file references, one Windows 10 with a run
// past the year 3000); Windows 10 and 11 pack theirs as "MAM" containers. With `seeds`, each
// plain image also cut short, with an unknown version, and with counts that point past the end.
struct pf_sample {
    std::string name;
    std::vector<std::uint8_t> bytes;
};
std::vector<pf_sample> sample_files(bool seeds);
// Versions of the samples' programs as Windows rewrites a Prefetch file: NAME.1 is the sample itself,
// NAME.2 and NAME.3 (of CALC and MSPAINT) hold three more runs each and drop the three oldest.
struct pf_version {
    pf_sample file;
    std::vector<std::uint64_t> runs; // newest first
};
std::vector<pf_version> program_versions();
