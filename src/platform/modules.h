// modules.h - loaded modules: symbols of the VM module looked up by name
// (GetProcAddress) and the file a loaded address belongs to
// (GetModuleFileName).
#pragma once

#include <string>

namespace kp::platform {

// The address of `name` in the module whose handle the VM gave, or null.
void* module_symbol(void* module, const char* name);
// The full path of the module holding `address`, "" when unknown.
std::string module_path_of(const void* address);

} // namespace kp::platform
