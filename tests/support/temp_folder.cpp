#include "support/temp_folder.h"

#include <cstdlib>

#include <filesystem>
#include <system_error>

temp_folder::temp_folder(std::string const& tag)
{
    char const* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/kito-" + tag + "-XXXXXX";
    if (mkdtemp(pattern.data()) != nullptr) m_path = pattern;
}

temp_folder::~temp_folder()
{
    // Links inside are removed, never followed.
    std::error_code ignored;
    if (!m_path.empty()) std::filesystem::remove_all(m_path, ignored);
}
