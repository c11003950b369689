#include "evidence/shadow_copies.h"

#include <algorithm>
#include <cstdio>

std::size_t shadow_copies::open(volume_view const& live)
{
    m_live = live;
    m_volume_bytes = live.image->volume_bytes(live.volume);
    if (!m_catalog.open(m_volume_bytes) && !m_catalog.problem().empty())
        std::fprintf(stderr, "prob reading shadow copies of %s: %s\n", volume_name(live).c_str(),
                     m_catalog.problem().c_str());
    return m_catalog.stores().size();
}

bool shadow_copies::list(bool deleted, std::vector<evidence_item>& items)
{
    std::vector<shadow_store const*> newest_first;
    for (shadow_store const& store : m_catalog.stores()) newest_first.push_back(&store);
    std::stable_sort(newest_first.begin(), newest_first.end(), [](shadow_store const* a, shadow_store const* b) {
        return a->created != b->created ? a->created > b->created : a->number > b->number;
    });
    bool found = false;
    for (shadow_store const* store : newest_first) {
        volume_view view = m_live;
        view.name_prefix = m_live.name_prefix + "vss" + std::to_string(store->number) + ":";
        std::string problem = store->problem;
        auto image = std::make_unique<disk_image>();
        if (problem.empty()) {
            if (!image->open(store->bytes)) problem = "cannot be opened" + image->error();
            else if (image->open_volumes(), image->volumes().empty()) problem = "no NTFS volume";
        }
        if (!problem.empty()) {
            std::fprintf(stderr, "prob reading shadow copy %s: %s\n", volume_name(view).c_str(), problem.c_str());
            continue;
        }
        view.image = image.get();
        view.volume = 0;
        view.location.shadow_copy = {true, store->number, store->identifier, store->created};
        std::vector<prefetch_folder> const folders = find_prefetch_folders(view);
        // A store whose blocks read wrongly can still pass for NTFS.
        if (folders.empty())
            std::fprintf(stderr, "prob reading shadow copy %s: no Prefetch folder\n", volume_name(view).c_str());
        found = found || !folders.empty();
        list_volume_files(view, folders, deleted, items);
        m_images.push_back(std::move(image));
    }
    return found;
}
