// Hostile bytes through decoding and then every report writer. The first
// byte picks the options, the rest is the file.
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <vector>

#include "driver/kito_user_context.h"
#include "driver/output_entry.h"
#include "driver/run_header.h"

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
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    if (size == 0) return 0;
    arg_list list = option_sets[data[0] % option_sets.size()];
    kito_user_context context;
    if (!parse_tool_options(context, list, kito_version)) return 0;
    context.m_file_path = "/evidence/X.EXE-01234567.pf";
    context.m_file_base_name = "X.EXE-01234567.pf";
    bool const decoded = decode_prefetch_buffer(data + 1, static_cast<std::uint32_t>(size - 1), context);
    std::ostringstream out;
    write_prefetch_report(out, context, decoded);
    return 0;
}
