#include "support/json_lite.h"

#include <cctype>
#include <cstdlib>

namespace {

class parser {
public:
    explicit parser(std::string_view text) : m_text(text) {}

    bool value(json_value& out)
    {
        skip_blanks();
        if (m_pos >= m_text.size()) return false;
        char const c = m_text[m_pos];
        if (c == '{') return object(out);
        if (c == '[') return array(out);
        if (c == '"') {
            out.type = json_value::kind::string;
            return string(out.text);
        }
        if (literal("true")) return out.type = json_value::kind::boolean, out.flag = true, true;
        if (literal("false")) return out.type = json_value::kind::boolean, true;
        if (literal("null")) return out.type = json_value::kind::null, true;
        return number(out);
    }

    bool at_end()
    {
        skip_blanks();
        return m_pos == m_text.size();
    }

private:
    void skip_blanks()
    {
        while (m_pos < m_text.size() && std::isspace(static_cast<unsigned char>(m_text[m_pos]))) ++m_pos;
    }
    bool take(char c)
    {
        skip_blanks();
        if (m_pos < m_text.size() && m_text[m_pos] == c) return ++m_pos, true;
        return false;
    }
    bool literal(std::string_view word)
    {
        if (m_text.substr(m_pos, word.size()) != word) return false;
        m_pos += word.size();
        return true;
    }
    bool number(json_value& out)
    {
        std::size_t const start = m_pos;
        while (m_pos < m_text.size() && (std::isdigit(static_cast<unsigned char>(m_text[m_pos])) ||
                                         std::string_view("+-.eE").find(m_text[m_pos]) != std::string_view::npos))
            ++m_pos;
        out.type = json_value::kind::number;
        out.text = std::string(m_text.substr(start, m_pos - start));
        return m_pos > start;
    }
    bool hex4(std::uint32_t& unit)
    {
        if (m_pos + 4 > m_text.size()) return false;
        unit = 0;
        for (int i = 0; i < 4; ++i) {
            char const c = m_text[m_pos++];
            if (!std::isxdigit(static_cast<unsigned char>(c))) return false;
            unit = unit * 16 + static_cast<std::uint32_t>(std::isdigit(static_cast<unsigned char>(c)) ? c - '0' : (c | 0x20) - 'a' + 10);
        }
        return true;
    }
    static void append_utf8(std::string& out, std::uint32_t cp)
    {
        if (cp < 0x80) {
            out += static_cast<char>(cp);
        } else if (cp < 0x800) {
            out += static_cast<char>(0xc0 | (cp >> 6));
            out += static_cast<char>(0x80 | (cp & 0x3f));
        } else if (cp < 0x10000) {
            out += static_cast<char>(0xe0 | (cp >> 12));
            out += static_cast<char>(0x80 | ((cp >> 6) & 0x3f));
            out += static_cast<char>(0x80 | (cp & 0x3f));
        } else {
            out += static_cast<char>(0xf0 | (cp >> 18));
            out += static_cast<char>(0x80 | ((cp >> 12) & 0x3f));
            out += static_cast<char>(0x80 | ((cp >> 6) & 0x3f));
            out += static_cast<char>(0x80 | (cp & 0x3f));
        }
    }
    bool escape(std::string& out)
    {
        if (m_pos >= m_text.size()) return false;
        char const c = m_text[m_pos++];
        std::string_view const plain = "\"\\/bfnrt", meaning = "\"\\/\b\f\n\r\t";
        if (auto const i = plain.find(c); i != std::string_view::npos) return out += meaning[i], true;
        std::uint32_t unit = 0;
        if (c != 'u' || !hex4(unit)) return false;
        // A high surrogate followed by an escaped low one is one code point.
        if (unit >= 0xd800 && unit < 0xdc00 && m_text.substr(m_pos, 2) == "\\u") {
            std::size_t const back = m_pos;
            std::uint32_t low = 0;
            m_pos += 2;
            if (hex4(low) && low >= 0xdc00 && low < 0xe000) unit = 0x10000 + ((unit - 0xd800) << 10) + (low - 0xdc00);
            else m_pos = back;
        }
        append_utf8(out, unit);
        return true;
    }
    bool string(std::string& out)
    {
        ++m_pos; // opening quote
        while (m_pos < m_text.size()) {
            char const c = m_text[m_pos++];
            if (c == '"') return true;
            if (c != '\\') out += c;
            else if (!escape(out)) return false;
        }
        return false;
    }
    bool array(json_value& out)
    {
        out.type = json_value::kind::array;
        ++m_pos;
        if (take(']')) return true;
        do {
            out.items.emplace_back();
            if (!value(out.items.back())) return false;
        } while (take(','));
        return take(']');
    }
    bool object(json_value& out)
    {
        out.type = json_value::kind::object;
        ++m_pos;
        if (take('}')) return true;
        do {
            skip_blanks();
            std::string key;
            if (m_pos >= m_text.size() || m_text[m_pos] != '"' || !string(key) || !take(':')) return false;
            out.members.emplace_back(std::move(key), json_value{});
            if (!value(out.members.back().second)) return false;
        } while (take(','));
        return take('}');
    }

    std::string_view m_text;
    std::size_t m_pos = 0;
};

} // namespace

json_value const* json_value::find(std::string_view key) const
{
    for (auto const& [name, member] : members)
        if (name == key) return &member;
    return nullptr;
}

std::uint64_t json_value::as_u64() const { return std::strtoull(text.c_str(), nullptr, 10); }

bool parse_json(std::string_view text, json_value& out)
{
    parser p(text);
    return p.value(out) && p.at_end();
}
