#pragma once
// The image libraries (The Sleuth Kit with the image formats under it,
// libvshadow with libbfio, libqcow) live in a module of their own,
// kito-images.so, with their bridges. It is loaded the first time an image
// is opened: a run that reads no image never loads the forty-odd libraries
// they bring, which took most of kito's start-up time.
#include <memory>
#include <string>

#include "evidence/qcow_bridge.h"
#include "evidence/tsk_bridge.h"
#include "evidence/vshadow_bridge.h"

// What the module gives: a backend of each kind, and the QCOW signature test.
struct image_module {
    std::unique_ptr<disk_image_backend> (*disk_image)();
    std::unique_ptr<shadow_volume_backend> (*shadow_volume)();
    std::unique_ptr<qcow_disk_backend> (*qcow_disk)();
    bool (*is_qcow_image)(std::string const& path);
};

// The C name of the module's one export, a function that returns its table.
constexpr char image_module_entry[] = "kito_image_module";
using image_module_entry_fn = image_module const* (*)();

// The module, loaded once for the run, from beside the program or from the
// library folder of its installation; null when it can't be, `problem` then
// saying why.
image_module const* load_image_module(std::string& problem);
