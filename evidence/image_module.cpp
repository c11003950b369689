#include "evidence/image_module.h"

#include <dlfcn.h>
#include <unistd.h>

#include <array>

namespace {

constexpr char module_name[] = "kito-images.so";

// The folder of the running program.
std::string program_folder()
{
    std::array<char, 4096> path{};
    ssize_t const length = ::readlink("/proc/self/exe", path.data(), path.size() - 1);
    if (length <= 0) return {};
    std::string const whole(path.data(), static_cast<std::size_t>(length));
    std::size_t const slash = whole.rfind('/');
    return slash == std::string::npos ? std::string() : whole.substr(0, slash);
}

image_module const* open_module(std::string& problem)
{
    std::string const folder = program_folder();
    // Beside the program in a build; in the library folder once installed.
    for (std::string const& path : {folder + "/" + module_name, folder + "/" KITO_IMAGE_MODULE_DIR "/" + module_name}) {
        void* const handle = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (handle == nullptr) {
            problem = ::dlerror();
            continue;
        }
        auto const entry = reinterpret_cast<image_module_entry_fn>(::dlsym(handle, image_module_entry));
        if (entry != nullptr) return entry();
        problem = std::string("no ") + image_module_entry + " in " + path;
    }
    problem = "image support not loaded: " + problem;
    return nullptr;
}

// Asks the module for a backend of one kind; without the module, says why in `missing`.
template <typename backend>
std::unique_ptr<backend> backend_of(std::unique_ptr<backend> (*image_module::*kind)(), std::string& missing)
{
    image_module const* module = load_image_module(missing);
    return module != nullptr ? (module->*kind)() : nullptr;
}

} // namespace

image_module const* load_image_module(std::string& problem)
{
    static std::string failure;
    static image_module const* const module = open_module(failure);
    if (module == nullptr) problem = failure;
    return module;
}

disk_image::disk_image() : m_backend(backend_of(&image_module::disk_image, m_missing)) {}
shadow_volume::shadow_volume() : m_backend(backend_of(&image_module::shadow_volume, m_missing)) {}
qcow_disk::qcow_disk() : m_backend(backend_of(&image_module::qcow_disk, m_missing)) {}

bool is_qcow_image(std::string const& path)
{
    std::string problem;
    image_module const* module = load_image_module(problem);
    return module != nullptr && module->is_qcow_image(path);
}
