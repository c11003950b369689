#pragma once
// Test-side writer of plain Prefetch buffers: a file is described by named
// fields, laid out the way Windows lays it out (header, metrics array, file
// strings, volume records, then each volume's path, file references and
// directory strings), and can be damaged afterwards through the offsets the
// builder reports back.
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
    std::optional<std::uint32_t> directory_count; // default: directories.size()
    std::uint32_t zero_words_before_dirs = 0;      // zero length words in front of each directory string
    bool terminate_path = true;
};

struct pf_fields {
    std::uint32_t version = 30;
    std::optional<std::uint32_t> metrics_offset; // default: that of the version (30: 304)
    std::u16string exe_name;                     // more than 30 units are cut to 30
    std::optional<std::uint32_t> declared_size;  // default: the real size
    std::uint32_t run_count = 0;
    std::uint64_t last_run = 0;                  // versions 17 and 23
    std::array<std::uint64_t, 8> run_slots{};    // versions 26 and 30: u64 at 128..184
    std::vector<std::u16string> file_strings;
    std::optional<std::uint32_t> metrics_count;  // default: file_strings.size()
    bool terminate_last_string = true;
    std::vector<pf_volume_fields> volumes;
    std::uint32_t volumes_shift = 0;             // extra bytes before the volumes section
};

struct pf_image {
    std::vector<std::uint8_t> bytes;
    std::uint32_t strings_offset = 0;
    std::uint32_t volumes_offset = 0;
    std::uint32_t record_size = 0;
    std::vector<std::uint32_t> string_offsets; // where each file string begins
    std::vector<std::uint32_t> path_offsets;   // where each device path begins
    std::vector<std::uint32_t> dir_offsets;    // where each volume's directory strings begin

    std::uint32_t size() const { return static_cast<std::uint32_t>(bytes.size()); }
    // Overwrite a field; the buffer grows if the field lies past its end.
    void put_u16(std::size_t offset, std::uint16_t value);
    void put_u32(std::size_t offset, std::uint32_t value);
    void put_u64(std::size_t offset, std::uint64_t value);
};

// Volume record size and run-count/last-run offsets as Windows writes them.
std::uint32_t pf_record_size(std::uint32_t version);
std::uint32_t pf_default_metrics_offset(std::uint32_t version);

pf_image build_prefetch(pf_fields const& fields);

// A sound file of the given layout with three strings and two volumes, the
// base that most tests then change in one place.
pf_fields typical_prefetch(std::uint32_t version, std::uint32_t metrics_offset = 304);
