#pragma once
// Deleted Prefetch files: MFT entries no longer in use whose $FILE_NAME still
// places them in a Prefetch folder and whose data runs are still recorded.
// Their clusters may since have been reused: they are decoded like any file,
// and a damaged one fails like any damaged file.
#include <vector>

#include "evidence/volume_files.h"

// The deleted entries of `folder`, named IMAGE@START:[vssN:]deleted:/path.
std::vector<listed_file> deleted_files(volume_view const& view, prefetch_folder const& folder);
