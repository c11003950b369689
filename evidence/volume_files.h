#pragma once
// The Prefetch files of one NTFS volume as opened (the live volume or one of
// its shadow copies): the regular files of each Windows\Prefetch folder and,
// when asked, the deleted entries that name such a folder, each an evidence
// item with its NTFS times and its place.
#include <string>
#include <vector>

#include "evidence/evidence_item.h"
#include "evidence/tsk_bridge.h"

// One volume as opened, and how its files are named and placed.
struct volume_view {
    disk_image const* image = nullptr; // must outlive the items
    std::size_t volume = 0;
    std::string name_prefix; // IMAGE@START: or IMAGE@START:vssN:
    image_location location; // image path, partition offset, shadow copy
};

struct prefetch_folder {
    std::uint64_t mft_entry = 0;
    std::string path; // /Windows/Prefetch/ as stored
};

// IMAGE@START, the volume's own name.
std::string volume_name(volume_view const& view);
// Every Windows\Prefetch folder of the volume, either level in any case.
std::vector<prefetch_folder> find_prefetch_folders(volume_view const& view);
// The files of the folders, allocated ones in path order, then with
// `deleted` the deleted entries in path order.
void list_volume_files(volume_view const& view, std::vector<prefetch_folder> const& folders, bool deleted,
                       std::vector<evidence_item>& items);

// A file of a folder as found, before its bytes are read.
struct listed_file {
    std::string display_name;
    image_location location;
    ntfs_file_facts facts;
    bool damaged = false; // the MFT entry could not be read, or was reused since the folder named it
};
// The item that reads the file through the view's image.
evidence_item listed_item(volume_view const& view, listed_file file);
