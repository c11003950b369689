#pragma once
// The Sleuth Kit behind plain values: a disk image, the NTFS volumes of its
// partition table, their folders and files. This is the one unit that knows
// the library; the sources above it see entries, names and bytes.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

// One name of a folder listing.
struct folder_name {
    std::uint64_t mft_entry = 0;
    std::uint32_t sequence = 0; // of the MFT entry the name refers to
    std::string name;           // as stored
    bool is_folder = false;
    bool is_regular = false;
    bool allocated = false; // false for a name left behind by a deleted file
};

// A file's facts from its MFT entry; times as FILETIME, from
// $STANDARD_INFORMATION.
struct ntfs_file_facts {
    std::uint32_t sequence = 0;
    std::uint64_t size = 0;
    std::uint64_t created = 0, modified = 0, accessed = 0, entry_modified = 0;
};

// Where an NTFS volume lies in its image.
struct ntfs_volume_place {
    std::uint64_t start_sector = 0; // as the partition table gives it, 0 without one
    std::uint64_t offset = 0;       // in bytes
};

class disk_image {
public:
    disk_image();
    ~disk_image();
    disk_image(disk_image const&) = delete;
    disk_image& operator=(disk_image const&) = delete;

    // Opens the image file with its type detected; false, with the
    // library's reason in error(), when it can't.
    bool open(std::string const& path);
    // Every NTFS volume of the partition table, in its order; an image
    // without a table is one volume.
    void open_volumes();
    std::vector<ntfs_volume_place> const& volumes() const;

    std::uint64_t root_folder(std::size_t volume) const;
    // The names of a folder, in the order the volume lists them; none when
    // it can't be opened.
    std::vector<folder_name> list_folder(std::size_t volume, std::uint64_t folder) const;
    // False when the entry can't be read or its $STANDARD_INFORMATION is
    // missing.
    bool file_facts(std::size_t volume, std::uint64_t entry, ntfs_file_facts& facts) const;
    // The first `size` bytes of the entry's data; false when a read fails or
    // comes up short.
    bool read_file(std::size_t volume, std::uint64_t entry, std::uint64_t size, std::vector<std::uint8_t>& bytes) const;

    // The library's last error, " (text)" on one line, or nothing.
    std::string error() const;
    void clear_error() const;

private:
    struct handles;
    std::unique_ptr<handles> m_handles;
};
