#pragma once
// A Prefetch file of this system, named on the command line, by a list or by
// a folder walk.
#include <string>

#include "evidence/evidence_item.h"

// The file at `path` (UTF-8, variables already expanded).
evidence_item file_evidence(std::string const& path);
