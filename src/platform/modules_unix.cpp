// modules_unix.cpp - module handles are dlopen handles; paths come from dladdr.
#include <dlfcn.h>

#include "platform/modules.h"

namespace kp::platform {

void* module_symbol(void* module, const char* name) {
    return module ? dlsym(module, name) : nullptr;
}

std::string module_path_of(const void* address) {
    Dl_info info{};
    if (address && dladdr(address, &info) && info.dli_fname) return info.dli_fname;
    return {};
}

} // namespace kp::platform
