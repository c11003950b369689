#include "prefetch/hosting_programs.h"

#include <algorithm>
#include <array>

#include "foundation/vlm_string.h"

namespace {

// One row a program. Every name fits the 29 characters that the header keeps.
constexpr std::array<std::string_view, 12> hosting_programs = {
    "svchost.exe",
    "dllhost.exe",
    "RuntimeBroker.exe",
    "rundll32.exe",
    "msedgewebview2.exe",
    "backgroundTaskHost.exe",
    "backgroundTransferHost.exe",
    "WWAHost.exe",
    "ShellExperienceHost.exe",
    "StartMenuExperienceHost.exe",
    "TextInputHost.exe",
    "taskhost.exe",
};

} // namespace

bool is_hosting_program(std::string_view executable)
{
    return std::any_of(hosting_programs.begin(), hosting_programs.end(), [executable](std::string_view name) {
        return name.size() == executable.size() && starts_with_ignore_case(executable, name);
    });
}
