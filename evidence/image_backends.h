#pragma once
// The bridges of the image module, each over its library. Only the module is
// built from them; the rest of kito reaches them through image_module.h.
#include <memory>
#include <string>

#include "evidence/qcow_bridge.h"
#include "evidence/tsk_bridge.h"
#include "evidence/vshadow_bridge.h"

std::unique_ptr<disk_image_backend> tsk_disk_image_backend();
std::unique_ptr<shadow_volume_backend> vshadow_volume_backend();
std::unique_ptr<qcow_disk_backend> libqcow_disk_backend();
bool qcow_signature_found(std::string const& path);
