#include "evidence/evidence_item.h"

#include "foundation/vlm_path_rules.h"

std::string base_name_of(std::string const& display_name)
{
    std::string folder, name;
    return split_path(display_name, folder, name) ? name : display_name;
}
