#pragma once
// Values by a u64 key, in key order: the file-name strings by their offset in
// the file, a volume's directory strings by their ordinal, the files' NTFS
// references by the offset of their string. The decoders meet the keys in
// rising order, so the pairs are kept in one sorted vector and each new one
// goes on the end; a hostile file can hold millions of empty strings, and a
// tree node apiece would double what they cost.
#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

template <typename value>
class ordered_pairs {
public:
    using value_type = std::pair<std::uint64_t, value>;
    using const_iterator = typename std::vector<value_type>::const_iterator;

    ordered_pairs() = default;
    // As a map would take them: sorted by key, the first of equal keys kept.
    ordered_pairs(std::initializer_list<value_type> pairs)
    {
        for (value_type const& pair : pairs) emplace(pair.first, pair.second);
    }

    // Adds the value under the key unless the key is there already.
    bool emplace(std::uint64_t key, value item)
    {
        if (m_pairs.empty() || m_pairs.back().first < key) {
            m_pairs.emplace_back(key, std::move(item));
            return true;
        }
        auto const at = lower_bound(key);
        if (at != m_pairs.end() && at->first == key) return false;
        m_pairs.emplace(at, key, std::move(item));
        return true;
    }

    value& operator[](std::uint64_t key)
    {
        auto at = lower_bound(key);
        if (at == m_pairs.end() || at->first != key) at = m_pairs.emplace(at, key, value());
        return at->second;
    }

    // The pair under the key, or end().
    const_iterator find(std::uint64_t key) const
    {
        auto const at = std::lower_bound(m_pairs.begin(), m_pairs.end(), key,
                                         [](value_type const& pair, std::uint64_t k) { return pair.first < k; });
        return at != m_pairs.end() && at->first == key ? at : m_pairs.end();
    }

    void reserve(std::size_t count) { m_pairs.reserve(count); }
    void clear() { m_pairs.clear(); }
    std::size_t size() const { return m_pairs.size(); }
    bool empty() const { return m_pairs.empty(); }
    const_iterator begin() const { return m_pairs.begin(); }
    const_iterator end() const { return m_pairs.end(); }

private:
    typename std::vector<value_type>::iterator lower_bound(std::uint64_t key)
    {
        return std::lower_bound(m_pairs.begin(), m_pairs.end(), key,
                                [](value_type const& pair, std::uint64_t k) { return pair.first < k; });
    }

    std::vector<value_type> m_pairs;
};

using offset_string_map = ordered_pairs<std::string>;
