#include "support/temp_folder.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

temp_folder::temp_folder(std::string const& tag)
{
    char const* base = std::getenv("TMPDIR");
    for (std::string root : {std::string(base != nullptr ? base : ""), std::string("/tmp")}) {
        if (root.empty()) continue;
        std::string pattern = root + "/kito-" + tag + "-XXXXXX";
        if (mkdtemp(pattern.data()) == nullptr) continue;
        m_path = pattern;
        return;
    }
    // Without a folder the tests would write beside whatever path they build: stop here instead.
    std::fprintf(stderr, "no temporary folder for %s\n", tag.c_str());
    std::abort();
}

temp_folder::~temp_folder()
{
    // Links inside are removed, never followed.
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}
