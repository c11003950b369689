#include "reports/report_texts.h"

#include <cstdio>

#include "foundation/vlm_time.h"
#include "prefetch/container_decompressor.h"

std::size_t utf8_sequence(std::string_view text, std::uint32_t& code_point)
{
    auto const byte = [text](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
    std::uint8_t const lead = byte(0);
    std::size_t const length = lead < 0x80   ? 1
                               : lead < 0xc2 ? 0
                               : lead < 0xe0 ? 2
                               : lead < 0xf0 ? 3
                               : lead < 0xf5 ? 4
                                             : 0;
    if (length == 0 || length > text.size()) return 0;
    code_point = length == 1 ? lead : lead & (0x7fu >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xc0) != 0x80) return 0;
        code_point = code_point << 6 | (byte(i) & 0x3fu);
    }
    // Overlong forms and values past U+10FFFF are not UTF-8.
    static constexpr std::uint32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
    return code_point >= least[length] && code_point <= 0x10ffff ? length : 0;
}

std::string iso_time(std::uint64_t filetime)
{
    vlm::time const moment(filetime, vlm::filetime);
    if (!moment.valid) return {};
    vlm::_windows_systemtime const& t = moment.utc_fields;
    char text[48];
    std::snprintf(text, sizeof text, "%04u-%02u-%02uT%02u:%02u:%02u.%07lluZ", t.year, t.month, t.day, t.hour, t.minute,
                  t.second, static_cast<unsigned long long>(filetime % vlm::ticks_per_second));
    return text;
}

std::string hash_text(std::uint32_t hash)
{
    char text[12];
    std::snprintf(text, sizeof text, "%08X", hash);
    return text;
}

std::string container_names(std::vector<std::uint32_t> const& kinds)
{
    std::string names;
    for (std::uint32_t kind : kinds) {
        if (!names.empty()) names += '/';
        names += kind == container_mam ? "MAM" : kind == container_mem0 ? "MEM0" : "xpress";
    }
    return names;
}

char const* failure_reason(decode_failure failure)
{
    switch (failure) {
    case decode_failure::unreadable: return "cannot be read";
    case decode_failure::too_large: return "larger than 16 MiB";
    case decode_failure::empty_file: return "empty file";
    case decode_failure::not_prefetch: return "not a Prefetch file";
    case decode_failure::container_broken: return "container does not decompress";
    case decode_failure::container_too_large: return "container declares more than 16 MiB";
    case decode_failure::strings_past_end: return "strings section past the end";
    case decode_failure::volumes_past_end: return "volumes section past the end";
    case decode_failure::none:
    case decode_failure::exception: break;
    }
    return "could not be decoded";
}
