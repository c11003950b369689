#include "evidence/image_volumes.h"

#include <algorithm>
#include <cstdio>

#include "evidence/ewf_segments.h"
#include "foundation/problem_messages.h"
#include "foundation/vlm_string.h"
#include "prefetch/decode_chain.h"

namespace {

// NTFS stores names as written; Windows matches them without regard to case.
bool same_name_any_case(std::string const& stored, char const* wanted)
{
    std::string folded = stored;
    return to_lower_narrow(folded) == wanted;
}

bool is_dot_entry(std::string const& name) { return name == "." || name == ".."; }

// The allocated folders of a folder whose name matches `wanted`.
std::vector<folder_name> subfolders(disk_image const& image, std::size_t volume, std::uint64_t folder,
                                    char const* wanted)
{
    std::vector<folder_name> found;
    for (folder_name& name : image.list_folder(volume, folder))
        if (name.is_folder && name.allocated && !is_dot_entry(name.name) && same_name_any_case(name.name, wanted))
            found.push_back(std::move(name));
    return found;
}

// What reading one listed file needs.
struct listed_file {
    std::size_t volume = 0;
    std::string display_name;
    image_location location;
    ntfs_file_facts facts;
    bool damaged = false; // the MFT entry could not be read, or was reused since the folder named it
};

// Reads one listed file into buffers.file_bytes, with its NTFS facts and
// place in the entry. A damaged entry, an empty file, one over the 16 MiB
// limit and a failed read are refused with a message on standard error.
bool read_listed_file(disk_image const& image, listed_file const& file, decode_buffers& buffers, prefetch_entry& entry)
{
    entry.image = file.location;
    entry.input_file_size = file.facts.size;
    entry.input_modified = file.facts.modified;
    entry.input_accessed = file.facts.accessed;
    entry.input_stats_changed = file.facts.entry_modified;
    entry.input_created = file.facts.created;
    entry.input_time_label = "Time last run";
    entry.input_time_source = "pf";
    entry.input_time_kind = 1;
    buffers.trim();
    image.clear_error();
    std::uint64_t const size = file.facts.size;
    if (file.damaged) entry.failure = decode_failure::unreadable;
    else if (size == 0) entry.failure = decode_failure::empty_file;
    else if (size > read_limit) entry.failure = decode_failure::too_large;
    else if (!image.read_file(file.volume, file.location.mft_entry, size, buffers.file_bytes))
        entry.failure = decode_failure::unreadable;
    if (entry.failure == decode_failure::none) return true;
    std::string const why = file.damaged                                  ? ": damaged MFT entry"
                            : entry.failure == decode_failure::empty_file ? ": empty file"
                            : entry.failure == decode_failure::too_large  ? ": larger than 16 MiB"
                                                                          : image.error();
    print_problem("prob reading file %s%s\n", file.display_name.c_str(), why.c_str());
    return false;
}

} // namespace

bool image_volumes::open(std::string const& path)
{
    m_items.clear();
    m_prefetch_found = false;
    std::string const broken = ewf_segments_problem(path);
    if (!broken.empty()) {
        std::fprintf(stderr, "prob opening image %s: %s\n", path.c_str(), broken.c_str());
        return false;
    }
    if (!m_image.open(path)) {
        std::fprintf(stderr, "prob opening image %s%s\n", path.c_str(), m_image.error().c_str());
        return false;
    }
    m_image.open_volumes();
    if (m_image.volumes().empty()) {
        std::fprintf(stderr, "no NTFS volume in image %s\n", path.c_str());
        return false;
    }
    for (std::size_t v = 0; v < m_image.volumes().size(); ++v) list_volume(path, v);
    if (!m_prefetch_found) {
        std::fprintf(stderr, "no Prefetch folder in image %s\n", path.c_str());
        return false;
    }
    return true;
}

// The files of every Windows\Prefetch folder of one volume, in path order.
// Only names and MFT entries are kept: the bytes are read one file at a time.
void image_volumes::list_volume(std::string const& path, std::size_t volume)
{
    ntfs_volume_place const place = m_image.volumes()[volume];
    std::vector<listed_file> found;
    for (folder_name const& windows : subfolders(m_image, volume, m_image.root_folder(volume), "windows"))
        for (folder_name const& prefetch : subfolders(m_image, volume, windows.mft_entry, "prefetch")) {
            m_prefetch_found = true;
            std::string const folder = "/" + windows.name + "/" + prefetch.name + "/";
            for (folder_name const& entry : m_image.list_folder(volume, prefetch.mft_entry)) {
                if (!entry.is_regular || !entry.allocated || is_dot_entry(entry.name)) continue;
                listed_file file;
                file.volume = volume;
                file.location.present = true;
                file.location.image_path = path;
                file.location.partition_offset = place.offset;
                file.location.mft_entry = entry.mft_entry;
                file.location.path_in_volume = folder + entry.name;
                file.display_name =
                    path + "@" + std::to_string(place.start_sector) + ":" + file.location.path_in_volume;
                file.damaged =
                    !m_image.file_facts(volume, entry.mft_entry, file.facts) || file.facts.sequence != entry.sequence;
                if (file.damaged) file.facts = {};
                else file.location.mft_sequence = static_cast<std::uint16_t>(file.facts.sequence);
                found.push_back(std::move(file));
            }
        }
    std::sort(found.begin(), found.end(), [](listed_file const& a, listed_file const& b) {
        return a.location.path_in_volume < b.location.path_in_volume;
    });
    for (listed_file& file : found) {
        evidence_item item;
        item.display_name = file.display_name;
        item.file_base_name = base_name_of(file.display_name);
        item.image = file.location;
        item.recorded_modified = file.facts.modified;
        item.read = [this, file = std::move(file)](decode_buffers& buffers, prefetch_entry& entry) {
            return read_listed_file(m_image, file, buffers, entry);
        };
        m_items.push_back(std::move(item));
    }
}
