// archive.cpp - _zipCreate_old and _zipOpen_old (rules in archive.h).
#include "transforms/archive.h"

#include <map>
#include <string>

#include "component/runtime.h"
#include "platform/paths.h"
#include "platform/win32_error.h"
#include "platform/zip.h"

namespace kp::transforms {

namespace {

constexpr uint32_t kErrEmptyName = 80059;
constexpr uint32_t kErrNotFullPath = 80600;

// The archives named by _zipCreate_old and _zipOpen_old: archive name ->
// device file name, kept for the module's lifetime.
struct OldArchives {
    std::map<std::u16string, std::u16string> files;
};

// The host path of a device file name, or an error recorded.
bool host_path_of(std::u16string_view file, std::string& out, CXError& e) {
    if (file.empty()) {
        e.fail(kErrEmptyName);
        return false;
    }
    if (!platform::is_absolute_device_name(file)) {
        e.fail(kErrNotFullPath, {file});
        return false;
    }
    // Resolved beneath the device root: the library gets a path without links.
    bool exists = false;
    if (!platform::resolve_host_path(file, out, exists)) {
        e.set_system(platform::last_error());
        e.set_severity(KP_SEVERITY_ERROR);
        return false;
    }
    return true;
}

template <typename Op>
int32_t bind(std::u16string_view archive, std::u16string_view file, CXError& e, Op op) {
    std::string path;
    if (!host_path_of(file, path, e)) return platform::kZipErrInvalid;
    const int result = op(path);
    if (result == platform::kZipOk)
        runtime::family_state<OldArchives>().files[std::u16string(archive)] = std::u16string(file);
    return result;
}

} // namespace

int32_t zip_create_old(std::u16string_view archive, std::u16string_view file, CXError& e) {
    return bind(archive, file, e, [](const std::string& p) { return platform::zip_create_empty(p); });
}

int32_t zip_open_old(std::u16string_view archive, std::u16string_view file, CXError& e) {
    return bind(archive, file, e, [](const std::string& p) { return platform::zip_check_readable(p); });
}

const std::u16string* zip_archive_file(std::u16string_view archive) {
    const auto& archives = runtime::family_state<OldArchives>().files;
    auto it = archives.find(std::u16string(archive));
    return it == archives.end() ? nullptr : &it->second;
}

} // namespace kp::transforms
