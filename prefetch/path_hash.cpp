#include "prefetch/path_hash.h"

#include <array>
#include <optional>
#include <string_view>

#include "foundation/vlm_string.h"
#include "prefetch/hosting_programs.h"

namespace {

constexpr std::uint32_t xp_version = 17;
constexpr std::uint32_t highest_volume = 64;
// From Vista on, a program started with "/prefetch:N" (Chromium's processes,
// installers) gets the hash of its path plus N; N stays within 1 to 16.
constexpr std::uint32_t first_flag_version = 23;
constexpr std::uint32_t highest_flag = 16;

// Both hashes run h = h * 37 + b over the UTF-16LE bytes of the path as stored,
// modulo 2^32. `scale` is 37 to the power of the bytes fed, so that the hash
// of a prefix and that of the rest started from zero combine into the whole.
struct running_hash {
    std::uint32_t value = 0;
    std::uint32_t scale = 1;
};

// The strings are UTF-8 made unit by unit from UTF-16 (a lone surrogate in
// its own three-byte form), so widening gives back the stored units exactly.
running_hash feed(std::uint32_t seed, std::string_view text)
{
    running_hash h{seed, 1};
    for (wchar_t const element : utf8_to_wide(text)) {
        auto const unit = static_cast<std::uint32_t>(element);
        for (std::uint32_t const byte : {unit & 0xffu, (unit >> 8) & 0xffu}) {
            h.value = h.value * 37 + byte;
            h.scale *= 37;
        }
    }
    return h;
}

std::uint32_t seed_of(std::uint32_t version) { return version == xp_version ? 0 : 314159; }

// Windows XP scrambles the sum and folds it into 0..1000000006; the later
// versions keep the sum as it is.
std::uint32_t finish(std::uint32_t version, std::uint32_t sum)
{
    if (version != xp_version) return sum;
    std::uint32_t h = sum * 314159269u;
    if (h > 0x80000000u) h = 0u - h;
    return h % 1000000007u;
}

// Where the \VOLUME{...} part of a candidate ends, behind its "}"; 0 when it
// has none.
std::size_t volume_guid_end(std::string_view path)
{
    if (!starts_with_ignore_case(path, "\\VOLUME{")) return 0;
    std::size_t const brace = path.find('}');
    return brace == std::string::npos ? 0 : brace + 1;
}

std::string device_path(std::uint32_t volume) { return "\\DEVICE\\HARDDISKVOLUME" + std::to_string(volume); }

// A form of a candidate that gives the wanted hash, and the N of "/prefetch:N"
// it needed (0: none).
struct hashed_form {
    std::string path;
    std::uint32_t prefetch_flag = 0;
};

// Tries the candidates of one file. The sums of the 64 device paths are made
// once, when the first \VOLUME{...} candidate comes: a hostile file may hold
// hundreds of thousands of candidates.
class path_hash_search {
public:
    path_hash_search(std::uint32_t version, std::uint32_t wanted)
        : m_version(version), m_wanted(wanted), m_highest_flag(version >= first_flag_version ? highest_flag : 0)
    {
    }

    // The form of the candidate whose hash is the wanted one, or that plus the
    // smallest N, if one is.
    std::optional<hashed_form> matching_form(std::string_view path)
    {
        std::size_t const guid_end = volume_guid_end(path);
        if (guid_end == 0) {
            std::uint32_t const flag = flag_needed(feed(seed_of(m_version), path).value);
            if (flag <= m_highest_flag) return hashed_form{std::string(path), flag};
            return std::nullopt;
        }
        // The rest is the same on every volume: it is hashed once.
        std::string_view const rest = path.substr(guid_end);
        running_hash const tail = feed(0, rest);
        std::array<std::uint32_t, highest_volume> const& devices = device_sums();
        std::uint32_t best_volume = 0, best_flag = m_highest_flag + 1;
        for (std::uint32_t volume = 1; volume <= highest_volume && best_flag != 0; ++volume) {
            std::uint32_t const flag = flag_needed(devices[volume - 1] * tail.scale + tail.value);
            if (flag < best_flag) best_volume = volume, best_flag = flag;
        }
        if (best_volume == 0) return std::nullopt;
        return hashed_form{device_path(best_volume).append(rest), best_flag};
    }

private:
    // What has to be added to a form's hash to give the wanted one, modulo 2^32.
    std::uint32_t flag_needed(std::uint32_t sum) const { return m_wanted - finish(m_version, sum); }

    std::array<std::uint32_t, highest_volume> const& device_sums()
    {
        if (!m_devices_summed) {
            for (std::uint32_t volume = 1; volume <= highest_volume; ++volume)
                m_device_sums[volume - 1] = feed(seed_of(m_version), device_path(volume)).value;
            m_devices_summed = true;
        }
        return m_device_sums;
    }

    std::uint32_t m_version;
    std::uint32_t m_wanted;
    std::uint32_t m_highest_flag;
    std::array<std::uint32_t, highest_volume> m_device_sums{};
    bool m_devices_summed = false;
};

bool names_program(std::string_view path, std::string const& name)
{
    std::size_t const slash = path.rfind('\\');
    return starts_with_ignore_case(path.substr(slash == std::string_view::npos ? 0 : slash + 1), name);
}

} // namespace

void check_path_hash(prefetch_entry& entry)
{
    entry.path_hash = path_hash_check::no_candidate;
    entry.hash_path.clear();
    entry.hash_prefetch_flag = 0;
    entry.hash_hosting_program = false;
    path_hash_search search(entry.format_version, entry.prefetch_hash);
    // Any candidate's own hash beats the first candidate's hash plus N.
    std::optional<hashed_form> found;
    for (auto const& [offset, path] : entry.file_strings) {
        if (!names_program(path, entry.target_name)) continue;
        entry.path_hash = path_hash_check::not_matched;
        std::optional<hashed_form> hashed = search.matching_form(path);
        if (!hashed || (found && hashed->prefetch_flag != 0)) continue;
        found = std::move(hashed);
        if (found->prefetch_flag == 0) break;
    }
    if (found) {
        entry.path_hash = path_hash_check::matched;
        entry.hash_path = std::move(found->path);
        entry.hash_prefetch_flag = found->prefetch_flag;
    } else if (entry.path_hash == path_hash_check::not_matched) {
        entry.hash_hosting_program = is_hosting_program(entry.target_name);
    }
}
