#pragma once
// The files of one run by content: which hold bytes that an earlier file of
// the run held, and, for the first of each content, where else it lies. The
// sources deliver files in the order of preference (the live volume before
// the older copies, allocated before deleted), so the first place wins.
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

class content_index {
public:
    // Adds the next file by the digest of its bytes; an empty digest (bytes
    // not read whole) matches nothing.
    void add(std::string const& digest, std::string display_name);
    std::size_t size() const { return m_first.size(); }
    // Whether bytes of this digest were added before (an empty one never was).
    bool seen(std::string const& digest) const { return m_by_digest.count(digest) != 0; }
    // Whether file i holds the bytes of an earlier file.
    bool duplicate(std::size_t i) const { return i < m_first.size() && m_first[i] != i; }
    // The digest of file i as added.
    std::string const& digest(std::size_t i) const { return m_digests.at(i); }
    // The display names of the later files that hold file i's bytes, in their order.
    std::vector<std::string> same_bytes_at(std::size_t i) const;

private:
    std::vector<std::size_t> m_first;                                  // per file, the first file with its bytes
    std::vector<std::string> m_names;                                  // per file
    std::vector<std::string> m_digests;                                // per file
    std::unordered_map<std::string, std::size_t> m_by_digest;          // the first file of each content
    std::unordered_map<std::size_t, std::vector<std::size_t>> m_later; // first file -> the others
};
