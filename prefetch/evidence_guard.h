#pragma once
// kito never writes over its own evidence: a results file, a diagnostics log
// or an unpacked container must not land on a Prefetch file or a container.
#include <string>

#include "prefetch/byte_reader.h"

// True when the bytes begin like a Prefetch file ("SCCA" at offset 4) or a
// container ("MAM", "MEM0" or 0x81 0x81 "xpress" at offset 0).
bool begins_like_evidence(byte_view head);

// True when `path` names an existing file (links followed) whose first bytes
// begin like evidence. A path that cannot be read is no evidence.
bool is_evidence_file(std::string const& path);
