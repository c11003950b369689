// The image module's one export: the table of its bridges.
#include "evidence/image_backends.h"
#include "evidence/image_module.h"

extern "C" __attribute__((visibility("default"))) image_module const* kito_image_module()
{
    static image_module const table{tsk_disk_image_backend, vshadow_volume_backend, libqcow_disk_backend,
                                    qcow_signature_found};
    return &table;
}
