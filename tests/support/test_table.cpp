#include "support/test_table.h"

#include <filesystem>

#include "support/run_process.h"

json test_table(std::string const& name)
{
    std::filesystem::path const data = std::filesystem::path(__FILE__).parent_path().parent_path() / "data";
    return json::parse(read_file((data / (name + ".json")).string()));
}

std::string bytes_of(json const& text)
{
    std::string out;
    for (auto const& s = text.get_ref<std::string const&>(); unsigned char const c : s)
        if ((c & 0xC0) == 0x80) out.back() = static_cast<char>(out.back() << 6 | (c & 0x3F));
        else out.push_back(static_cast<char>(c));
    return out;
}
