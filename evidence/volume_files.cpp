#include "evidence/volume_files.h"

#include "foundation/problem_messages.h"

#include <algorithm>
#include <cstdio>

#include "evidence/deleted_entries.h"
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
std::vector<folder_name> subfolders(volume_view const& view, std::uint64_t folder, char const* wanted)
{
    std::vector<folder_name> found;
    for (folder_name& name : view.image->list_folder(view.volume, folder))
        if (name.is_folder && name.allocated && !is_dot_entry(name.name) && same_name_any_case(name.name, wanted))
            found.push_back(std::move(name));
    return found;
}

// The allocated regular files of a folder; their bytes are read later, one
// file at a time.
std::vector<listed_file> allocated_files(volume_view const& view, prefetch_folder const& folder)
{
    std::vector<listed_file> found;
    for (folder_name const& entry : view.image->list_folder(view.volume, folder.mft_entry)) {
        if (!entry.is_regular || !entry.allocated || is_dot_entry(entry.name)) continue;
        listed_file file;
        file.location = view.location;
        file.location.mft_entry = entry.mft_entry;
        file.location.path_in_volume = folder.path + entry.name;
        file.display_name = view.name_prefix + file.location.path_in_volume;
        file.damaged =
            !view.image->file_facts(view.volume, entry.mft_entry, file.facts) || file.facts.sequence != entry.sequence;
        if (file.damaged) file.facts = {};
        else file.location.mft_sequence = static_cast<std::uint16_t>(file.facts.sequence);
        found.push_back(std::move(file));
    }
    return found;
}

void add_in_path_order(volume_view const& view, std::vector<listed_file> files, std::vector<evidence_item>& items)
{
    std::stable_sort(files.begin(), files.end(), [](listed_file const& a, listed_file const& b) {
        return a.location.path_in_volume < b.location.path_in_volume;
    });
    for (listed_file& file : files) items.push_back(listed_item(view, std::move(file)));
}

// Reads one listed file into buffers.file_bytes, with its NTFS facts and
// place in the entry. A damaged entry, an empty file, one over the 16 MiB
// limit and a failed read are refused with a message on standard error.
bool read_listed_file(volume_view const& view, listed_file const& file, decode_buffers& buffers, prefetch_entry& entry)
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
    view.image->clear_error();
    std::uint64_t const size = file.facts.size;
    if (file.damaged) entry.failure = decode_failure::unreadable;
    else if (size == 0) entry.failure = decode_failure::empty_file;
    else if (size > read_limit) entry.failure = decode_failure::too_large;
    else if (!view.image->read_file(view.volume, file.location.mft_entry, size, buffers.file_bytes))
        entry.failure = decode_failure::unreadable;
    if (entry.failure == decode_failure::none) return true;
    std::string const why = file.damaged                                  ? ": damaged MFT entry"
                            : entry.failure == decode_failure::empty_file ? ": empty file"
                            : entry.failure == decode_failure::too_large  ? ": larger than 16 MiB"
                                                                          : view.image->error();
    print_problem("prob reading file %s%s\n", file.display_name.c_str(), why.c_str());
    return false;
}

} // namespace

std::string volume_name(volume_view const& view)
{
    std::string name = view.name_prefix;
    if (!name.empty() && name.back() == ':') name.pop_back();
    return name;
}

std::vector<prefetch_folder> find_prefetch_folders(volume_view const& view)
{
    std::vector<prefetch_folder> found;
    for (folder_name const& windows : subfolders(view, view.image->root_folder(view.volume), "windows"))
        for (folder_name const& prefetch : subfolders(view, windows.mft_entry, "prefetch"))
            found.push_back({prefetch.mft_entry, "/" + windows.name + "/" + prefetch.name + "/"});
    return found;
}

void list_volume_files(volume_view const& view, std::vector<prefetch_folder> const& folders, bool deleted,
                       std::vector<evidence_item>& items)
{
    std::vector<listed_file> allocated, gone;
    for (prefetch_folder const& folder : folders) {
        std::vector<listed_file> files = allocated_files(view, folder);
        std::move(files.begin(), files.end(), std::back_inserter(allocated));
        if (!deleted) continue;
        files = deleted_files(view, folder);
        std::move(files.begin(), files.end(), std::back_inserter(gone));
    }
    add_in_path_order(view, std::move(allocated), items);
    add_in_path_order(view, std::move(gone), items);
}

evidence_item listed_item(volume_view const& view, listed_file file)
{
    evidence_item item;
    item.display_name = file.display_name;
    item.file_base_name = base_name_of(file.display_name);
    item.image = file.location;
    item.recorded_modified = file.facts.modified;
    item.recorded_size = file.damaged ? 0 : file.facts.size;
    item.read = [view, file = std::move(file)](decode_buffers& buffers, prefetch_entry& entry) {
        return read_listed_file(view, file, buffers, entry);
    };
    return item;
}
