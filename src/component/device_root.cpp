// device_root.cpp - the device root that the platform layer resolves device
// names under: the host's "device_root" setting, read at each use so that a
// host may change it between calls.
#include "component/runtime.h"
#include "platform/paths.h"

namespace kp::platform {

std::string device_root() {
    std::string root = runtime::setting(KP_SETTING_DEVICE_ROOT);
    while (!root.empty() && root.back() == '/')
        root.pop_back();
    return root;
}

} // namespace kp::platform
