#include "evidence/tsk_bridge.h"

#include <tsk/libtsk.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "evidence/image_backends.h"
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

// An image whose bytes come from a byte_range: the library's image record
// first, as it expects of an external image, then the range.
struct external_image {
    TSK_IMG_INFO info;
    byte_range const* range;
};

ssize_t read_external(TSK_IMG_INFO* image, TSK_OFF_T offset, char* into, std::size_t length)
{
    if (offset < 0) return -1;
    auto const* external = reinterpret_cast<external_image const*>(image);
    return read_clamped(*external->range, static_cast<std::uint64_t>(offset), reinterpret_cast<std::uint8_t*>(into),
                        length);
}

void close_external(TSK_IMG_INFO* image) { delete reinterpret_cast<external_image*>(image); }

void describe_external(TSK_IMG_INFO*, FILE*) {}

// The longest of the names that place an MFT entry in `folder` (a short 8.3
// name may stand beside the long one); empty when none does.
std::string name_in_folder(TSK_FS_META const& meta, std::uint64_t folder)
{
    std::string best;
    for (TSK_FS_META_NAME_LIST const* name = meta.name2; name != nullptr; name = name->next) {
        std::string const text(name->name, strnlen(name->name, sizeof name->name));
        if (name->par_inode == folder && text.size() > best.size()) best = text;
    }
    return best;
}

struct deleted_walk {
    std::uint64_t folder = 0;
    std::vector<folder_name> found;
};

TSK_WALK_RET_ENUM note_deleted(TSK_FS_FILE* file, void* walk_state)
{
    auto& walk = *static_cast<deleted_walk*>(walk_state);
    TSK_FS_META const* meta = file->meta;
    if (meta == nullptr || meta->type != TSK_FS_META_TYPE_REG || meta->size <= 0) return TSK_WALK_CONT;
    std::string name = name_in_folder(*meta, walk.folder);
    if (name.empty() || tsk_fs_file_attr_get_type(file, TSK_FS_ATTR_TYPE_NTFS_DATA, 0, 0) == nullptr)
        return TSK_WALK_CONT;
    walk.found.push_back({meta->addr, meta->seq, std::move(name), false, true, false});
    return TSK_WALK_CONT;
}

// The image as The Sleuth Kit reads it.
class tsk_disk_image final : public disk_image_backend {
public:
    tsk_disk_image();
    ~tsk_disk_image() override;
    tsk_disk_image(tsk_disk_image const&) = delete;
    tsk_disk_image& operator=(tsk_disk_image const&) = delete;

    bool open(std::string const& path) override;
    bool open(byte_range const& range) override;
    void open_volumes() override;
    std::vector<ntfs_volume_place> const& volumes() const override;
    byte_range volume_bytes(std::size_t volume) const override;
    std::uint64_t root_folder(std::size_t volume) const override;
    std::vector<folder_name> list_folder(std::size_t volume, std::uint64_t folder) const override;
    bool file_facts(std::size_t volume, std::uint64_t entry, ntfs_file_facts& facts) const override;
    bool read_file(std::size_t volume, std::uint64_t entry, std::uint64_t size,
                   std::vector<std::uint8_t>& bytes) const override;
    std::vector<byte_span> unallocated_runs(std::size_t volume) const override;
    std::vector<folder_name> deleted_in_folder(std::size_t volume, std::uint64_t folder) const override;
    std::string error() const override;
    void clear_error() const override;

private:
    struct handles;
    std::unique_ptr<handles> m_handles;
};

} // namespace

std::unique_ptr<disk_image_backend> tsk_disk_image_backend() { return std::make_unique<tsk_disk_image>(); }

struct tsk_disk_image::handles {
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

    void add(TSK_FS_INFO* fs, std::uint64_t start_sector, std::uint64_t sectors, std::uint64_t sector_size)
    {
        if (fs == nullptr) return;
        file_systems.push_back(fs);
        places.push_back({start_sector, start_sector * sector_size, sectors * sector_size});
    }
};

tsk_disk_image::tsk_disk_image() : m_handles(std::make_unique<handles>()) {}
tsk_disk_image::~tsk_disk_image() = default;

bool tsk_disk_image::open(std::string const& path)
{
    m_handles = std::make_unique<handles>();
    clear_error();
    m_handles->image = tsk_img_open_utf8_sing(path.c_str(), TSK_IMG_TYPE_DETECT, 0);
    return m_handles->image != nullptr;
}

bool tsk_disk_image::open(byte_range const& range)
{
    m_handles = std::make_unique<handles>();
    clear_error();
    auto* external = new external_image{};
    external->range = &range;
    m_handles->image = tsk_img_open_external(external, static_cast<TSK_OFF_T>(range.size), 512, read_external,
                                             close_external, describe_external);
    if (m_handles->image == nullptr) delete external;
    return m_handles->image != nullptr;
}

void tsk_disk_image::open_volumes()
{
    handles& h = *m_handles;
    if (h.image == nullptr) return;
    h.table = tsk_vs_open(h.image, 0, TSK_VS_TYPE_DETECT);
    if (h.table == nullptr) {
        std::uint64_t const size = h.image->size > 0 ? static_cast<std::uint64_t>(h.image->size) : 0;
        h.add(tsk_fs_open_img(h.image, 0, TSK_FS_TYPE_NTFS_DETECT), 0, size, 1);
        return;
    }
    for (TSK_PNUM_T i = 0; i < h.table->part_count; ++i) {
        TSK_VS_PART_INFO const* part = tsk_vs_part_get(h.table, i);
        if (part == nullptr || (part->flags & TSK_VS_PART_FLAG_ALLOC) == 0) continue;
        h.add(tsk_fs_open_vol(part, TSK_FS_TYPE_NTFS_DETECT), part->start, part->len, h.table->block_size);
    }
}

std::vector<ntfs_volume_place> const& tsk_disk_image::volumes() const { return m_handles->places; }

byte_range tsk_disk_image::volume_bytes(std::size_t volume) const
{
    ntfs_volume_place const place = m_handles->places.at(volume);
    TSK_IMG_INFO* image = m_handles->image;
    return {place.length, [image, place](std::uint64_t offset, std::uint8_t* into, std::size_t length) {
                if (offset > place.length || length > place.length - offset) return false;
                ssize_t const got = tsk_img_read(image, static_cast<TSK_OFF_T>(place.offset + offset),
                                                 reinterpret_cast<char*>(into), length);
                return got == static_cast<ssize_t>(length);
            }};
}

std::uint64_t tsk_disk_image::root_folder(std::size_t volume) const
{
    return m_handles->file_systems.at(volume)->root_inum;
}

std::vector<folder_name> tsk_disk_image::list_folder(std::size_t volume, std::uint64_t folder) const
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

bool tsk_disk_image::file_facts(std::size_t volume, std::uint64_t entry, ntfs_file_facts& facts) const
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

bool tsk_disk_image::read_file(std::size_t volume, std::uint64_t entry, std::uint64_t size,
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

std::string tsk_disk_image::error() const
{
    char const* text = tsk_error_get();
    std::string line = text != nullptr ? text : "";
    std::replace(line.begin(), line.end(), '\n', ' ');
    return line.empty() ? line : " (" + line + ")";
}

void tsk_disk_image::clear_error() const { tsk_error_reset(); }

std::vector<folder_name> tsk_disk_image::deleted_in_folder(std::size_t volume, std::uint64_t folder) const
{
    TSK_FS_INFO* fs = m_handles->file_systems.at(volume);
    deleted_walk walk;
    walk.folder = folder;
    tsk_fs_meta_walk(fs, fs->first_inum, fs->last_inum, TSK_FS_META_FLAG_UNALLOC, note_deleted, &walk);
    return walk.found;
}

namespace {

struct free_walk {
    std::uint64_t block_size = 0;
    std::vector<byte_span> runs;
};

TSK_WALK_RET_ENUM note_free_block(TSK_FS_BLOCK const* block, void* context)
{
    auto& walk = *static_cast<free_walk*>(context);
    std::uint64_t const start = block->addr * walk.block_size;
    if (!walk.runs.empty() && walk.runs.back().start + walk.runs.back().length == start)
        walk.runs.back().length += walk.block_size;
    else walk.runs.push_back({start, walk.block_size});
    return TSK_WALK_CONT;
}

} // namespace

std::vector<byte_span> tsk_disk_image::unallocated_runs(std::size_t volume) const
{
    TSK_FS_INFO* fs = m_handles->file_systems.at(volume);
    free_walk walk{fs->block_size, {}};
    // Addresses only: the bytes are read later, a window at a time. The last
    // block is the last one the image really holds.
    auto const flags =
        static_cast<TSK_FS_BLOCK_WALK_FLAG_ENUM>(TSK_FS_BLOCK_WALK_FLAG_UNALLOC | TSK_FS_BLOCK_WALK_FLAG_AONLY);
    tsk_fs_block_walk(fs, fs->first_block, fs->last_block_act, flags, note_free_block, &walk);
    return walk.runs;
}
