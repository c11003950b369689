#pragma once
// Programs that Windows names their Prefetch file after by a hash of the
// command line as well as the path, so that no path of the file gives it:
// each service group, COM surrogate or task they host has a file of its own.
#include <string_view>

// Whether the header's executable name is one of them: the whole name, with
// its ".exe", compared without regard to ASCII case.
bool is_hosting_program(std::string_view executable);
