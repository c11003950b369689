#include "driver/content_index.h"

void content_index::add(std::string const& digest, std::string display_name)
{
    std::size_t const index = m_first.size();
    std::size_t first = index;
    if (!digest.empty()) {
        auto const [found, added] = m_by_digest.try_emplace(digest, index);
        if (!added) {
            first = found->second;
            m_later[first].push_back(index);
        }
    }
    m_first.push_back(first);
    m_names.push_back(std::move(display_name));
    m_digests.push_back(digest);
}

std::vector<std::string> content_index::same_bytes_at(std::size_t i) const
{
    std::vector<std::string> names;
    auto const found = m_later.find(i);
    if (found != m_later.end())
        for (std::size_t const other : found->second) names.push_back(m_names[other]);
    return names;
}
