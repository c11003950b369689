// Hostile bytes through decoding and then every report writer. The first
// byte picks the options, the rest is the file.
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <streambuf>
#include <vector>

#include "driver/kito_user_context.h"
#include "driver/output_entry.h"
#include "driver/run_header.h"
#include "prefetch/container_decompressor.h"

namespace {

std::vector<arg_list> const option_sets{
    {"kito", "x.pf"},
    {"kito", "x.pf", "-csv", "-verbose", "-no_whitespace"},
    {"kito", "x.pf", "-csvl2t"},
    {"kito", "x.pf", "-bodyfile"},
    {"kito", "x.pf", "-csv", "-pair_datetime", "-dateformat", "yyyymmdd", "-timeformat", "hh:mm:ss.xxxxxxx"},
    {"kito", "x.pf", "-csvl2t", "-dateformat", "dd/yyyy/mm", "-timeformat", "mi:ss", "-csv_separator", "|"},
    {"kito", "x.pf", "-kito_path", "-hostname", "host", "-dateformat", "mm/dd/yyyy", "-timeformat", "hh:mm"},
    {"kito", "x.pf", "-json", "-hostname", "h\xff\"", "-username", "u"},
    {"kito", "x.pf", "-html", "-hostname", "<h\xff\"", "-username", "u\n"},
};

// Takes the report and keeps none of it: the writers still format every byte.
class discard_buffer : public std::streambuf {
protected:
    int_type overflow(int_type c) override
    {
        setp(m_area, m_area + sizeof m_area);
        return traits_type::not_eof(c);
    }

private:
    char m_area[4096];
};

// A report grows with the decoded size: a container that unpacks to the 16 MiB
// limit makes hundreds of megabytes of it, longer than a sanitized run may
// take for one input. Real files unpack to well under 1 MiB; the worst cases
// run in the product build, in resource_bounds_test.
constexpr std::uint32_t max_reported_size = 1u << 20;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    if (size == 0) return 0;
    arg_list list = option_sets[data[0] % option_sets.size()];
    kito_user_context context;
    if (!parse_tool_options(context, list, kito_version)) return 0;
    context.m_file_path = "/evidence/X.EXE-01234567.pf";
    context.m_file_base_name = "X.EXE-01234567.pf";
    std::uint32_t declared = 0;
    if (detect_container(declared, data + 1, static_cast<std::int32_t>(size - 1)) != container_none &&
        declared > max_reported_size)
        return 0;
    bool const decoded = decode_prefetch_buffer(data + 1, static_cast<std::uint32_t>(size - 1), context);
    if (context.m_entry.decoded_size > max_reported_size) return 0; // a container inside a container
    discard_buffer sink;
    std::ostream out(&sink);
    write_prefetch_report(out, context, decoded);
    if (context.m_fmt_html) write_html_end(out, context);
    return 0;
}
