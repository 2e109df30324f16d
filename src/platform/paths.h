// paths.h - device names and where they live on the host.
//
// The device's file system is a directory of the host, the device root (the
// host's "device_root" setting; "/" when none is set).  A device name is
// absolute when it begins with "\" or "/", or when it ends with ":" (a stream
// device such as "COM1:").  Backslashes and slashes both separate components;
// "." is skipped and ".." goes up one level but never above the root, so no
// name reaches outside the device.
//
// The device's file system ignores case: a component that does not exist as
// written is looked up in its directory without regard to case, and the
// first match in byte order of the host names is taken.  Components that
// exist nowhere keep the case they were written with (names being created).
//
// A stream-device name ("NAME:", not starting with a separator) is the entry
// "NAME:" of the device root, so that a host can put a FIFO, a character
// device or a link to one there.
//
// Symbolic links inside the root are followed: they are the host's own
// arrangement of the device.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

struct stat;

namespace kp::platform {

// Longest device name, in UTF-16 units, that the device accepts (MAX_PATH
// less the terminator); longer names fail with 206.
constexpr std::size_t kMaxDeviceName = 259;

bool is_absolute_device_name(std::u16string_view name);

struct ResolvedName {
    std::string host_path;      // UTF-8 (WTF-8) path on the host
    bool parent_exists = false; // the directory that holds the last component exists
    bool exists = false;        // the named entry exists
    bool is_root = false;       // the name is the device root itself
};

// The device root as a host directory, without a trailing slash ("" for
// "/").  The platform layer reads no settings: the component supplies this
// function (component/device_root.cpp) from the host's "device_root"
// setting, and every function here that takes a `root` is passed it.
std::string device_root();

// Resolves a device name under `root` (a host directory).  Fails with a
// Win32 code in *error: 123 for a NUL, a lone surrogate or a wildcard
// character when `allow_wildcards` is false, 206 for a name that is too long,
// 3 for an empty name.
bool resolve_device_name(std::string_view root, std::u16string_view name, ResolvedName& out, uint32_t* error,
                         bool allow_wildcards = false);
// The same under device_root(); also records the error as the thread's last error.
bool resolve_device_name(std::u16string_view name, ResolvedName& out, bool allow_wildcards = false);
// The same for a name that must be an existing entry other than the root,
// with the entry's own status (links not followed) in `st`: 5 for the root,
// 2 when the entry does not exist, 3 when its directory does not either,
// and the error of lstat.
bool resolve_entry(std::u16string_view name, ResolvedName& out, struct stat& st);

// The device name ("\dir\file") of a host path under the root, or "" when
// the path lies outside it.
std::u16string device_name_of(std::string_view root, std::string_view host_path);

} // namespace kp::platform
