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
#include <iterator>
#include <string>
#include <string_view>
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
    // Bytes held, used or not.
    std::size_t room() const { return m_pairs.capacity() * sizeof(value_type); }
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

// Texts by a u64 key, in key order, as ordered_pairs gives them, but with
// every text of the map in one buffer: a file names hundreds of files, and a
// block of memory apiece cost more than decoding them, most of all when the
// map is made on one thread and freed on another. A text is read as a
// string_view, valid until the map next changes.
class offset_string_map {
    struct text_span {
        std::uint64_t key;
        std::size_t start;
        std::size_t length;
    };

public:
    using value_type = std::pair<std::uint64_t, std::string_view>;

    class const_iterator {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = offset_string_map::value_type;
        using difference_type = std::ptrdiff_t;
        using pointer = void;
        using reference = value_type;

        const_iterator() = default;
        value_type operator*() const { return {m_at->key, std::string_view(m_text->data() + m_at->start, m_at->length)}; }
        const_iterator& operator++()
        {
            ++m_at;
            return *this;
        }
        const_iterator operator++(int)
        {
            const_iterator const before = *this;
            ++m_at;
            return before;
        }
        bool operator==(const_iterator const& other) const { return m_at == other.m_at; }

    private:
        friend class offset_string_map;
        const_iterator(typename std::vector<text_span>::const_iterator at, std::string const* text)
            : m_at(at), m_text(text)
        {
        }
        typename std::vector<text_span>::const_iterator m_at{};
        std::string const* m_text = nullptr;
    };

    offset_string_map() = default;
    // As a map would take them: sorted by key, the first of equal keys kept.
    offset_string_map(std::initializer_list<std::pair<std::uint64_t, std::string_view>> pairs)
    {
        for (auto const& [key, text] : pairs) emplace(key, text);
    }

    // Adds the text under the key unless the key is there already.
    bool emplace(std::uint64_t key, std::string_view text)
    {
        return emplace_with(key, [text](std::string& buffer) { buffer.append(text); });
    }
    // The same with the text that append(buffer) puts on the end of the buffer.
    template <typename append_fn>
    bool emplace_with(std::uint64_t key, append_fn append)
    {
        auto at = m_spans.end();
        if (!m_spans.empty() && m_spans.back().key >= key) {
            at = lower_bound(key);
            if (at != m_spans.end() && at->key == key) return false;
        }
        std::size_t const start = m_text.size();
        append(m_text);
        m_spans.insert(at, text_span{key, start, m_text.size() - start});
        return true;
    }

    // The pair under the key, or end().
    const_iterator find(std::uint64_t key) const
    {
        auto const at = std::lower_bound(m_spans.begin(), m_spans.end(), key,
                                         [](text_span const& span, std::uint64_t k) { return span.key < k; });
        return at != m_spans.end() && at->key == key ? const_iterator(at, &m_text) : end();
    }

    // Room for `count` texts of `bytes` bytes in all.
    void reserve(std::size_t count, std::size_t bytes = 0)
    {
        m_spans.reserve(count);
        m_text.reserve(bytes);
    }
    void clear()
    {
        m_spans.clear();
        m_text.clear();
    }
    // Bytes held, used or not.
    std::size_t room() const { return m_spans.capacity() * sizeof(text_span) + m_text.capacity(); }
    std::size_t size() const { return m_spans.size(); }
    bool empty() const { return m_spans.empty(); }
    const_iterator begin() const { return const_iterator(m_spans.begin(), &m_text); }
    const_iterator end() const { return const_iterator(m_spans.end(), &m_text); }

private:
    std::vector<text_span>::iterator lower_bound(std::uint64_t key)
    {
        return std::lower_bound(m_spans.begin(), m_spans.end(), key,
                                [](text_span const& span, std::uint64_t k) { return span.key < k; });
    }

    std::vector<text_span> m_spans;
    std::string m_text;
};
