#include "support/json_lite.h"

#include <cctype>
#include <cstdlib>

namespace {

struct parser {
    std::string_view s;
    std::size_t pos = 0;

    void skip()
    {
        while (pos < s.size() && std::isspace(static_cast<unsigned char>(s[pos]))) ++pos;
    }
    bool take(char c) { return skip(), pos < s.size() && s[pos] == c && ++pos; }
    bool word(std::string_view w) { return s.substr(pos, w.size()) == w && (pos += w.size()); }
    // \uXXXX becomes UTF-8 unit by unit: the sidecars escape no surrogate pairs.
    bool escape(std::string& out)
    {
        std::string_view const plain = "\"\\/bfnrt", meaning = "\"\\/\b\f\n\r\t";
        char const c = pos < s.size() ? s[pos++] : 0;
        if (auto const i = plain.find(c); i != plain.npos) return out += meaning[i], true;
        std::string const digits(s.substr(pos, 4));
        char* end = nullptr;
        auto const u = static_cast<std::uint32_t>(std::strtoul(digits.c_str(), &end, 16));
        if (c != 'u' || digits.size() != 4 || end != digits.c_str() + 4) return false;
        pos += 4;
        int const tail = u < 0x80 ? 0 : u < 0x800 ? 1 : 2;
        out += static_cast<char>(tail == 0 ? u : ((0xff << (7 - tail)) & 0xff) | u >> (6 * tail));
        for (int k = tail - 1; k >= 0; --k) out += static_cast<char>(0x80 | ((u >> (6 * k)) & 0x3f));
        return true;
    }
    bool string(std::string& out)
    {
        while (pos < s.size()) {
            char const c = s[pos++];
            if (c == '"') return true;
            if (c != '\\') out += c;
            else if (!escape(out)) return false;
        }
        return false;
    }
    bool value(json_value& out)
    {
        if (take('{')) {
            out.type = json_value::kind::object;
            if (take('}')) return true;
            do {
                std::string key;
                if (!take('"') || !string(key) || !take(':')) return false;
                if (!value(out.members.emplace_back(std::move(key), json_value{}).second)) return false;
            } while (take(','));
            return take('}');
        }
        if (take('[')) {
            out.type = json_value::kind::array;
            if (take(']')) return true;
            do {
                if (!value(out.items.emplace_back())) return false;
            } while (take(','));
            return take(']');
        }
        if (take('"')) return out.type = json_value::kind::string, string(out.text);
        if (word("true")) return out.type = json_value::kind::boolean, out.flag = true;
        if (word("false")) return out.type = json_value::kind::boolean, true;
        if (word("null")) return true;
        std::size_t const start = pos;
        while (pos < s.size() && (std::isdigit(static_cast<unsigned char>(s[pos])) || std::string_view("+-.eE").find(s[pos]) != std::string_view::npos)) ++pos;
        out.type = json_value::kind::number;
        out.text = s.substr(start, pos - start);
        return pos > start;
    }
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
    parser p{text};
    return p.value(out) && (p.skip(), p.pos == text.size());
}

json_value const& member_of(json_value const& object, std::string_view key)
{
    static json_value const missing;
    json_value const* v = object.find(key);
    return v ? *v : missing;
}

std::string sidecar_text(json_value const& value)
{
    json_value const* hex = value.find("hex");
    std::string bytes = hex ? "" : value.text;
    for (std::size_t i = 0; hex && i + 1 < hex->text.size(); i += 2)
        bytes += static_cast<char>(std::strtoul(hex->text.substr(i, 2).c_str(), nullptr, 16));
    return bytes;
}

std::vector<std::string> sidecar_texts(json_value const& list)
{
    std::vector<std::string> texts;
    for (auto const& item : list.items) texts.push_back(sidecar_text(item));
    return texts;
}

std::vector<std::uint64_t> numbers_of(json_value const& list)
{
    std::vector<std::uint64_t> numbers;
    for (auto const& item : list.items) numbers.push_back(item.as_u64());
    return numbers;
}
