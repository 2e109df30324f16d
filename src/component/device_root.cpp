// device_root.cpp - the device root that the platform layer resolves device
// names under: the host's "device_root" setting, read at each use so that a
// host may change it between calls, and its descriptor kept in the
// component's state.
#include "component/runtime.h"
#include "platform/paths.h"

namespace kp::platform {

std::string_view device_root_view() {
    const auto fn = runtime::service(&kp_services::setting);
    const char* text = fn ? fn(runtime::vm(), KP_SETTING_DEVICE_ROOT) : nullptr;
    std::string_view root = text ? text : "";
    while (!root.empty() && root.back() == '/')
        root.remove_suffix(1);
    return root;
}

std::string device_root() {
    return std::string(device_root_view());
}

RootDirectory& kept_root() {
    return *runtime::state().device_root;
}

} // namespace kp::platform
