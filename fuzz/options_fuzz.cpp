// Arbitrary command lines through the run header and the option pass. The
// words split at NUL bytes; the options that create files are dropped so the
// fuzzer never writes outside its own folder.
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>

#include "driver/kito_user_context.h"
#include "driver/run_header.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    arg_list list{"kito"};
    std::string word;
    for (std::size_t i = 0; i <= size; ++i) {
        if (i < size && data[i] != 0) {
            word.push_back(static_cast<char>(data[i]));
            continue;
        }
        bool const writes_files = equal_no_case(word, "-out") || equal_no_case(word, "-outfile") ||
                                  equal_no_case(word, "-diags") || equal_no_case(word, "-decompress_to");
        if (!writes_files) list.push_back(word);
        word.clear();
    }
    std::ostringstream header;
    build_run_header(header, list, 132000000000000000ULL);
    kito_user_context context;
    parse_tool_options(context, list, kito_version);
    return 0;
}
