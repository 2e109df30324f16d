// device_root.cpp - the device root that the platform layer resolves device
// names under: the host's "device_root" setting, read at each use so that a
// host may change it between calls, and its descriptor kept in the
// component's state.
#include "component/runtime.h"
#include "platform/paths.h"

namespace kp::platform {

std::string device_root() {
    std::string root = runtime::setting(KP_SETTING_DEVICE_ROOT);
    while (!root.empty() && root.back() == '/')
        root.pop_back();
    return root;
}

RootDirectory& kept_root() {
    return *runtime::state().device_root;
}

} // namespace kp::platform
