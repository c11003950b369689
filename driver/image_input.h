#pragma once
// Prefetch files read straight from a disk image (raw, split raw, E01, VMDK,
// VHD, AFF) through The Sleuth Kit: the partition table, every NTFS volume on
// it, and the regular files of each volume's Windows\Prefetch folder. This is
// the one unit that knows the library; what it hands on are the bytes, a
// name, the NTFS times and the file's place in the image.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "prefetch/decode_buffers.h"
#include "prefetch/prefetch_entry.h"

// One file of a Prefetch folder as listed, before its bytes are read.
struct image_file {
    std::string display_name; // IMAGE@START_SECTOR:/path/as/stored
    std::string name;         // the last part of the path
    std::size_t volume = 0;
    image_location location;
    std::uint64_t size = 0;
    // $STANDARD_INFORMATION times as FILETIME.
    std::uint64_t created = 0, modified = 0, accessed = 0, entry_modified = 0;
    bool damaged = false; // the MFT entry could not be read
};

// A stretch of free clusters of a volume, in bytes from the start of the image.
struct image_run {
    std::uint64_t start = 0;
    std::uint64_t length = 0;
};

// Where a volume lies: its start sector as the partition table gives it, and in bytes.
struct volume_place {
    std::uint64_t start_sector = 0;
    std::uint64_t offset = 0;
};

class image_source {
public:
    image_source();
    ~image_source();
    image_source(image_source const&) = delete;
    image_source& operator=(image_source const&) = delete;

    // Opens the image and lists the Prefetch folders of all its NTFS volumes,
    // volume by volume, each folder's files sorted by name. False, with a
    // message on standard error naming what is missing, when no such folder
    // is found.
    // With `folder_needed` false an image whose volumes have no Prefetch
    // folder opens too.
    bool open(std::string const& path, bool folder_needed = true);
    std::vector<image_file> const& files() const { return m_files; }
    // The first `limit` bytes of the file's data into bytes; false when a
    // read fails or comes up short.
    bool read(image_file const& file, std::uint32_t limit, std::vector<std::uint8_t>& bytes);

    std::vector<volume_place> volume_places() const;
    // The unallocated clusters of a volume, adjacent ones joined into one run.
    std::vector<image_run> unallocated_runs(std::size_t volume) const;
    // Up to count bytes of the image from offset: the count read, 0 at the
    // image's end, -1 when the read fails.
    std::int64_t read_at(std::uint64_t offset, std::uint8_t* buffer, std::size_t count);

private:
    void list_volume(std::string const& path, std::size_t index);

    struct volumes;
    std::unique_ptr<volumes> m_volumes;
    std::vector<image_file> m_files;
    bool m_prefetch_found = false;
};

// Reads one listed file into buffers.file_bytes, with its NTFS facts and
// place in the entry. A damaged entry, an empty file, one over the 16 MiB
// limit and a failed read are refused with a message on standard error.
bool read_image_file(image_source& source, image_file const& file, decode_buffers& buffers, prefetch_entry& entry);
