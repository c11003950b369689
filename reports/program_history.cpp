#include "reports/program_history.h"

#include <algorithm>

std::set<std::uint64_t> program_history::all_runs() const
{
    std::set<std::uint64_t> runs;
    for (program_version const& version : versions) runs.insert(version.runs.begin(), version.runs.end());
    return runs;
}

void history_book::add(prefetch_entry const& entry, std::string const& display_name)
{
    if (!entry.image.present) return;
    image_location const& place = entry.image;
    program_key key{place.image_path, place.partition_offset, entry.target_name, entry.prefetch_hash};
    auto const [found, added] = m_index.try_emplace(std::move(key), m_programs.size());
    if (added)
        m_programs.push_back(
            {place.image_path, place.partition_offset, entry.target_name, entry.target_path, entry.prefetch_hash, {}});
    program_version version{display_name, entry.last_run, entry.input_modified, entry.prev_run_times};
    if (entry.last_run != 0) version.runs.insert(entry.last_run);
    m_programs[found->second].versions.push_back(std::move(version));
}

std::vector<program_history> history_book::take_histories()
{
    std::vector<program_history> found;
    for (program_history& program : m_programs) {
        if (program.versions.size() < 2) continue;
        std::stable_sort(program.versions.begin(), program.versions.end(),
                         [](program_version const& a, program_version const& b) {
                             return std::tie(a.last_run, a.modified) > std::tie(b.last_run, b.modified);
                         });
        found.push_back(std::move(program));
    }
    m_programs.clear();
    m_index.clear();
    return found;
}
