#pragma once
// The Sleuth Kit behind plain values: a disk image, the NTFS volumes of its
// partition table, their folders and files. The library itself is known only
// to tsk_bridge.cpp, in the image module; the sources above see entries,
// names and bytes.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "evidence/byte_range.h"

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

// A stretch of bytes.
struct byte_span {
    std::uint64_t start = 0;
    std::uint64_t length = 0;
};

// Where an NTFS volume lies in its image.
struct ntfs_volume_place {
    std::uint64_t start_sector = 0; // as the partition table gives it, 0 without one
    std::uint64_t offset = 0;       // in bytes
    std::uint64_t length = 0;       // in bytes
};

// What the library does for an image, behind an interface: the image module
// (image_module.h) implements it, so that the libraries load only when an
// image is read.
class disk_image_backend {
public:
    virtual ~disk_image_backend() = default;
    virtual bool open(std::string const& path) = 0;
    virtual bool open(byte_range const& range) = 0;
    virtual void open_volumes() = 0;
    virtual std::vector<ntfs_volume_place> const& volumes() const = 0;
    virtual byte_range volume_bytes(std::size_t volume) const = 0;
    virtual std::uint64_t root_folder(std::size_t volume) const = 0;
    virtual std::vector<folder_name> list_folder(std::size_t volume, std::uint64_t folder) const = 0;
    virtual bool file_facts(std::size_t volume, std::uint64_t entry, ntfs_file_facts& facts) const = 0;
    virtual bool read_file(std::size_t volume, std::uint64_t entry, std::uint64_t size,
                           std::vector<std::uint8_t>& bytes) const = 0;
    virtual std::vector<byte_span> unallocated_runs(std::size_t volume) const = 0;
    virtual std::vector<folder_name> deleted_in_folder(std::size_t volume, std::uint64_t folder) const = 0;
    virtual std::string error() const = 0;
    virtual void clear_error() const = 0;
};

// A disk image. Without the image module every open fails, error() saying why.
class disk_image {
public:
    disk_image();
    disk_image(disk_image const&) = delete;
    disk_image& operator=(disk_image const&) = delete;

    // Opens the image file with its type detected; false, with the
    // library's reason in error(), when it can't.
    bool open(std::string const& path) { return m_backend && m_backend->open(path); }
    // Opens the bytes of `range` as a raw image (a shadow copy, a QCOW2
    // disk); the range must outlive this object.
    bool open(byte_range const& range) { return m_backend && m_backend->open(range); }
    // Every NTFS volume of the partition table, in its order; an image
    // without a table is one volume. The calls below are for an image opened.
    void open_volumes() { m_backend->open_volumes(); }
    std::vector<ntfs_volume_place> const& volumes() const { return m_backend->volumes(); }
    // The bytes of one volume, reads cut to its partition.
    byte_range volume_bytes(std::size_t volume) const { return m_backend->volume_bytes(volume); }

    std::uint64_t root_folder(std::size_t volume) const { return m_backend->root_folder(volume); }
    // The names of a folder, in the order the volume lists them; none when
    // it can't be opened.
    std::vector<folder_name> list_folder(std::size_t volume, std::uint64_t folder) const
    {
        return m_backend->list_folder(volume, folder);
    }
    // False when the entry can't be read or its $STANDARD_INFORMATION is
    // missing.
    bool file_facts(std::size_t volume, std::uint64_t entry, ntfs_file_facts& facts) const
    {
        return m_backend->file_facts(volume, entry, facts);
    }
    // The first `size` bytes of the entry's data; false when a read fails or
    // comes up short.
    bool read_file(std::size_t volume, std::uint64_t entry, std::uint64_t size, std::vector<std::uint8_t>& bytes) const
    {
        return m_backend->read_file(volume, entry, size, bytes);
    }
    // The stretches of unallocated clusters of a volume, adjacent ones joined,
    // in bytes from the volume's start.
    std::vector<byte_span> unallocated_runs(std::size_t volume) const { return m_backend->unallocated_runs(volume); }
    // The MFT entries not in use that a $FILE_NAME places in `folder`, with
    // data still recorded, and the longest of those names; in entry order.
    std::vector<folder_name> deleted_in_folder(std::size_t volume, std::uint64_t folder) const
    {
        return m_backend->deleted_in_folder(volume, folder);
    }

    // The library's last error, " (text)" on one line, or nothing.
    std::string error() const { return m_backend ? m_backend->error() : " (" + m_missing + ")"; }
    void clear_error() const
    {
        if (m_backend) m_backend->clear_error();
    }

private:
    std::string m_missing; // why there is no backend; first, as the constructor fills it
    std::unique_ptr<disk_image_backend> m_backend;
};
