#pragma once
// Disk-image formats that kito recognises but cannot read, told apart from
// a raw image, which any file can pass for: without this, such an image
// would read as a disk without an NTFS volume.
#include <string>

// Why the image at `path` can't be read ("VHDX image, ..."); empty when
// it is none of those formats.
std::string unsupported_image_format(std::string const& path);
