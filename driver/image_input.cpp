#include "driver/image_input.h"

#include <tsk/libtsk.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

#include "driver/ewf_segments.h"
#include "foundation/problem_messages.h"
#include "foundation/vlm_string.h"
#include "prefetch/byte_reader.h"
#include "prefetch/decode_chain.h"

namespace {

// The library's last error, on one line, or nothing.
std::string library_error()
{
    char const* text = tsk_error_get();
    std::string line = text != nullptr ? text : "";
    std::replace(line.begin(), line.end(), '\n', ' ');
    return line.empty() ? line : " (" + line + ")";
}

// NTFS stores names as written; Windows matches them without regard to case.
bool same_name_any_case(char const* stored, char const* wanted)
{
    std::string folded = stored;
    return to_lower_narrow(folded) == wanted;
}

bool is_dot_entry(char const* name) { return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0; }

// A folder entry: the MFT entry and sequence number it names, and the name as stored.
struct named_entry {
    TSK_INUM_T address = 0;
    std::uint32_t sequence = 0;
    std::string name;
};

// The allocated entries of a folder of type `type` whose name matches
// `wanted` (all of them without one).
std::vector<named_entry> folder_entries(TSK_FS_INFO* fs, TSK_INUM_T folder, TSK_FS_NAME_TYPE_ENUM type,
                                        char const* wanted)
{
    std::vector<named_entry> found;
    TSK_FS_DIR* dir = tsk_fs_dir_open_meta(fs, folder);
    if (dir == nullptr) return found;
    for (std::size_t i = 0, count = tsk_fs_dir_getsize(dir); i < count; ++i) {
        TSK_FS_NAME const* name = tsk_fs_dir_get_name(dir, i);
        if (name == nullptr || name->name == nullptr || name->type != type) continue;
        if ((name->flags & TSK_FS_NAME_FLAG_ALLOC) == 0 || is_dot_entry(name->name)) continue;
        if (wanted == nullptr || same_name_any_case(name->name, wanted))
            found.push_back({name->meta_addr, name->meta_seq, name->name});
    }
    tsk_fs_dir_close(dir);
    return found;
}

// $STANDARD_INFORMATION begins with four FILETIMEs: created, modified, entry
// modified, accessed. Read raw, they keep their 100-ns units and any year.
bool read_standard_times(TSK_FS_FILE* file, image_file& out)
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

// The file's size, sequence number and times from its MFT entry. An entry
// that can't be read, or that has been reused since the folder named it
// (another sequence number), is marked damaged.
void describe(TSK_FS_INFO* fs, image_file& file, std::uint32_t named_sequence)
{
    TSK_FS_FILE* opened = tsk_fs_file_open_meta(fs, nullptr, file.location.mft_entry);
    file.damaged = opened == nullptr || opened->meta == nullptr || opened->meta->seq != named_sequence ||
                   !read_standard_times(opened, file);
    if (!file.damaged) {
        file.location.mft_sequence = static_cast<std::uint16_t>(opened->meta->seq);
        file.size = opened->meta->size > 0 ? static_cast<std::uint64_t>(opened->meta->size) : 0;
    }
    tsk_fs_file_close(opened);
}

} // namespace

struct image_source::volumes {
    struct volume {
        TSK_FS_INFO* fs = nullptr;
        std::uint64_t start_sector = 0;
        std::uint64_t offset = 0;
    };
    TSK_IMG_INFO* image = nullptr;
    TSK_VS_INFO* table = nullptr;
    std::vector<volume> list;

    ~volumes()
    {
        for (volume& v : list) tsk_fs_close(v.fs);
        if (table != nullptr) tsk_vs_close(table);
        if (image != nullptr) tsk_img_close(image);
    }

    void add(TSK_FS_INFO* fs, std::uint64_t start_sector, std::uint64_t sector_size)
    {
        if (fs != nullptr) list.push_back({fs, start_sector, start_sector * sector_size});
    }

    // Every NTFS volume of the partition table; an image without a table
    // is one volume.
    void open_all()
    {
        table = tsk_vs_open(image, 0, TSK_VS_TYPE_DETECT);
        if (table == nullptr) {
            add(tsk_fs_open_img(image, 0, TSK_FS_TYPE_NTFS_DETECT), 0, image->sector_size);
            return;
        }
        for (TSK_PNUM_T i = 0; i < table->part_count; ++i) {
            TSK_VS_PART_INFO const* part = tsk_vs_part_get(table, i);
            if (part == nullptr || (part->flags & TSK_VS_PART_FLAG_ALLOC) == 0) continue;
            add(tsk_fs_open_vol(part, TSK_FS_TYPE_NTFS_DETECT), part->start, table->block_size);
        }
    }
};

image_source::image_source() = default;
image_source::~image_source() = default;

bool image_source::open(std::string const& path)
{
    m_files.clear();
    m_prefetch_found = false;
    m_volumes = std::make_unique<volumes>();
    std::string const broken = ewf_segments_problem(path);
    if (!broken.empty()) {
        std::fprintf(stderr, "prob opening image %s: %s\n", path.c_str(), broken.c_str());
        return false;
    }
    tsk_error_reset();
    m_volumes->image = tsk_img_open_utf8_sing(path.c_str(), TSK_IMG_TYPE_DETECT, 0);
    if (m_volumes->image == nullptr) {
        std::fprintf(stderr, "prob opening image %s%s\n", path.c_str(), library_error().c_str());
        return false;
    }
    m_volumes->open_all();
    if (m_volumes->list.empty()) {
        std::fprintf(stderr, "no NTFS volume in image %s\n", path.c_str());
        return false;
    }
    for (std::size_t v = 0; v < m_volumes->list.size(); ++v) list_volume(path, v);
    if (!m_prefetch_found) {
        std::fprintf(stderr, "no Prefetch folder in image %s\n", path.c_str());
        return false;
    }
    return true;
}

// The files of every Windows\Prefetch folder of one volume, in path order.
// Only names and MFT entries are kept: the bytes are read one file at a time.
void image_source::list_volume(std::string const& path, std::size_t index)
{
    volumes::volume const& v = m_volumes->list[index];
    std::vector<image_file> found;
    for (named_entry const& windows : folder_entries(v.fs, v.fs->root_inum, TSK_FS_NAME_TYPE_DIR, "windows"))
        for (named_entry const& prefetch : folder_entries(v.fs, windows.address, TSK_FS_NAME_TYPE_DIR, "prefetch")) {
            m_prefetch_found = true;
            std::string const folder = "/" + windows.name + "/" + prefetch.name + "/";
            for (named_entry const& entry : folder_entries(v.fs, prefetch.address, TSK_FS_NAME_TYPE_REG, nullptr)) {
                image_file file;
                file.name = entry.name;
                file.volume = index;
                file.location.present = true;
                file.location.image_path = path;
                file.location.partition_offset = v.offset;
                file.location.mft_entry = entry.address;
                file.location.path_in_volume = folder + entry.name;
                file.display_name = path + "@" + std::to_string(v.start_sector) + ":" + file.location.path_in_volume;
                describe(v.fs, file, entry.sequence);
                found.push_back(std::move(file));
            }
        }
    std::sort(found.begin(), found.end(), [](image_file const& a, image_file const& b) {
        return a.location.path_in_volume < b.location.path_in_volume;
    });
    std::move(found.begin(), found.end(), std::back_inserter(m_files));
}

bool image_source::read(image_file const& file, std::uint32_t limit, std::vector<std::uint8_t>& bytes)
{
    bytes.clear();
    if (!m_volumes || file.volume >= m_volumes->list.size()) return false;
    TSK_FS_FILE* opened = tsk_fs_file_open_meta(m_volumes->list[file.volume].fs, nullptr, file.location.mft_entry);
    if (opened == nullptr) return false;
    std::uint64_t const wanted = std::min<std::uint64_t>(file.size, limit);
    bytes.resize(wanted);
    std::uint64_t done = 0;
    while (done < wanted) {
        ssize_t const got =
            tsk_fs_file_read(opened, static_cast<TSK_OFF_T>(done), reinterpret_cast<char*>(bytes.data() + done),
                             wanted - done, TSK_FS_FILE_READ_FLAG_NONE);
        if (got <= 0) break;
        done += static_cast<std::uint64_t>(got);
    }
    tsk_fs_file_close(opened);
    return done == wanted;
}

bool read_image_file(image_source& source, image_file const& file, decode_buffers& buffers, prefetch_entry& entry)
{
    entry.image = file.location;
    entry.input_file_size = file.size;
    entry.input_modified = file.modified;
    entry.input_accessed = file.accessed;
    entry.input_stats_changed = file.entry_modified;
    entry.input_created = file.created;
    entry.input_time_label = "Time last run";
    entry.input_time_source = "pf";
    entry.input_time_kind = 1;
    buffers.trim();
    tsk_error_reset();
    if (file.damaged) entry.failure = decode_failure::unreadable;
    else if (file.size == 0) entry.failure = decode_failure::empty_file;
    else if (file.size > read_limit) entry.failure = decode_failure::too_large;
    else if (!source.read(file, read_limit, buffers.file_bytes)) entry.failure = decode_failure::unreadable;
    if (entry.failure == decode_failure::none) return true;
    std::string const why = file.damaged                                  ? ": damaged MFT entry"
                            : entry.failure == decode_failure::empty_file ? ": empty file"
                            : entry.failure == decode_failure::too_large  ? ": larger than 16 MiB"
                                                                          : library_error();
    print_problem("prob reading file %s%s\n", file.display_name.c_str(), why.c_str());
    return false;
}
