#include "evidence/deleted_entries.h"

std::vector<listed_file> deleted_files(volume_view const& view, prefetch_folder const& folder)
{
    std::vector<listed_file> found;
    for (folder_name const& entry : view.image->deleted_in_folder(view.volume, folder.mft_entry)) {
        listed_file file;
        file.location = view.location;
        file.location.source = evidence_source::deleted;
        file.location.mft_entry = entry.mft_entry;
        file.location.path_in_volume = folder.path + entry.name;
        file.display_name = view.name_prefix + "deleted:" + file.location.path_in_volume;
        // A deleted entry keeps its times; its sequence number moved on when
        // it was freed, so it names no folder entry to compare with.
        file.damaged = !view.image->file_facts(view.volume, entry.mft_entry, file.facts);
        if (file.damaged) file.facts = {};
        else file.location.mft_sequence = static_cast<std::uint16_t>(file.facts.sequence);
        found.push_back(std::move(file));
    }
    return found;
}
