#include "evidence/tsk_bridge.h"

#include <tsk/libtsk.h>

#include <algorithm>
#include <array>

#include "prefetch/byte_reader.h"

namespace {

// $STANDARD_INFORMATION begins with four FILETIMEs: created, modified, entry
// modified, accessed. Read raw, they keep their 100-ns units and any year.
bool read_standard_times(TSK_FS_FILE* file, ntfs_file_facts& out)
{
    TSK_FS_ATTR const* si = tsk_fs_file_attr_get_type(file, TSK_FS_ATTR_TYPE_NTFS_SI, 0, 0);
    std::array<std::uint8_t, 32> raw{};
    if (si == nullptr || tsk_fs_attr_read(si, 0, reinterpret_cast<char*>(raw.data()), raw.size(),
                                          TSK_FS_FILE_READ_FLAG_NONE) != static_cast<ssize_t>(raw.size()))
        return false;
    byte_view const view{raw.data(), raw.size()};
    return read_u64(view, 0, out.created) && read_u64(view, 8, out.modified) &&
           read_u64(view, 16, out.entry_modified) && read_u64(view, 24, out.accessed);
}

} // namespace

struct disk_image::handles {
    TSK_IMG_INFO* image = nullptr;
    TSK_VS_INFO* table = nullptr;
    std::vector<TSK_FS_INFO*> file_systems;
    std::vector<ntfs_volume_place> places;

    ~handles()
    {
        for (TSK_FS_INFO* fs : file_systems) tsk_fs_close(fs);
        if (table != nullptr) tsk_vs_close(table);
        if (image != nullptr) tsk_img_close(image);
    }

    void add(TSK_FS_INFO* fs, std::uint64_t start_sector, std::uint64_t sector_size)
    {
        if (fs == nullptr) return;
        file_systems.push_back(fs);
        places.push_back({start_sector, start_sector * sector_size});
    }
};

disk_image::disk_image() : m_handles(std::make_unique<handles>()) {}
disk_image::~disk_image() = default;

bool disk_image::open(std::string const& path)
{
    m_handles = std::make_unique<handles>();
    clear_error();
    m_handles->image = tsk_img_open_utf8_sing(path.c_str(), TSK_IMG_TYPE_DETECT, 0);
    return m_handles->image != nullptr;
}

void disk_image::open_volumes()
{
    handles& h = *m_handles;
    if (h.image == nullptr) return;
    h.table = tsk_vs_open(h.image, 0, TSK_VS_TYPE_DETECT);
    if (h.table == nullptr) {
        h.add(tsk_fs_open_img(h.image, 0, TSK_FS_TYPE_NTFS_DETECT), 0, h.image->sector_size);
        return;
    }
    for (TSK_PNUM_T i = 0; i < h.table->part_count; ++i) {
        TSK_VS_PART_INFO const* part = tsk_vs_part_get(h.table, i);
        if (part == nullptr || (part->flags & TSK_VS_PART_FLAG_ALLOC) == 0) continue;
        h.add(tsk_fs_open_vol(part, TSK_FS_TYPE_NTFS_DETECT), part->start, h.table->block_size);
    }
}

std::vector<ntfs_volume_place> const& disk_image::volumes() const { return m_handles->places; }

std::uint64_t disk_image::root_folder(std::size_t volume) const
{
    return m_handles->file_systems.at(volume)->root_inum;
}

std::vector<folder_name> disk_image::list_folder(std::size_t volume, std::uint64_t folder) const
{
    std::vector<folder_name> found;
    TSK_FS_DIR* dir = tsk_fs_dir_open_meta(m_handles->file_systems.at(volume), folder);
    if (dir == nullptr) return found;
    for (std::size_t i = 0, count = tsk_fs_dir_getsize(dir); i < count; ++i) {
        TSK_FS_NAME const* name = tsk_fs_dir_get_name(dir, i);
        if (name == nullptr || name->name == nullptr) continue;
        found.push_back({name->meta_addr, name->meta_seq, name->name, name->type == TSK_FS_NAME_TYPE_DIR,
                         name->type == TSK_FS_NAME_TYPE_REG, (name->flags & TSK_FS_NAME_FLAG_ALLOC) != 0});
    }
    tsk_fs_dir_close(dir);
    return found;
}

bool disk_image::file_facts(std::size_t volume, std::uint64_t entry, ntfs_file_facts& facts) const
{
    TSK_FS_FILE* opened = tsk_fs_file_open_meta(m_handles->file_systems.at(volume), nullptr, entry);
    bool const read = opened != nullptr && opened->meta != nullptr && read_standard_times(opened, facts);
    if (read) {
        facts.sequence = opened->meta->seq;
        facts.size = opened->meta->size > 0 ? static_cast<std::uint64_t>(opened->meta->size) : 0;
    }
    tsk_fs_file_close(opened);
    return read;
}

bool disk_image::read_file(std::size_t volume, std::uint64_t entry, std::uint64_t size,
                           std::vector<std::uint8_t>& bytes) const
{
    bytes.clear();
    TSK_FS_FILE* opened = tsk_fs_file_open_meta(m_handles->file_systems.at(volume), nullptr, entry);
    if (opened == nullptr) return false;
    bytes.resize(size);
    std::uint64_t done = 0;
    while (done < size) {
        ssize_t const got =
            tsk_fs_file_read(opened, static_cast<TSK_OFF_T>(done), reinterpret_cast<char*>(bytes.data() + done),
                             size - done, TSK_FS_FILE_READ_FLAG_NONE);
        if (got <= 0) break;
        done += static_cast<std::uint64_t>(got);
    }
    tsk_fs_file_close(opened);
    return done == size;
}

std::string disk_image::error() const
{
    char const* text = tsk_error_get();
    std::string line = text != nullptr ? text : "";
    std::replace(line.begin(), line.end(), '\n', ' ');
    return line.empty() ? line : " (" + line + ")";
}

void disk_image::clear_error() const { tsk_error_reset(); }
