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
// The device root is a jail.  Every name is resolved beneath a descriptor
// of the root (openat2 with RESOLVE_IN_ROOT, or where the kernel lacks it a
// walk component by component that keeps the same rules): a symbolic link
// is followed when its target lies inside, an absolute target is read from
// the root as in a chroot (a link to "/Windows/x" means "\Windows\x"), and
// ".." in a target never climbs above the root.  The operations then work on
// the descriptors the resolution got (*at calls), so that a name swapped
// for a link between a check and its use cannot lead outside.  A link loop
// (more than 40 links on the way) fails with 1921.  With the root "/" this
// is the host's plain resolution.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

struct stat;

namespace kp::platform {

// Longest device name, in UTF-16 units, that the device accepts (MAX_PATH
// less the terminator); longer names fail with 206.
constexpr std::size_t kMaxDeviceName = 259;

bool is_absolute_device_name(std::u16string_view name);

// A descriptor, closed with its holder.
class Fd {
  public:
    Fd() = default;
    explicit Fd(int fd) : fd_(fd) {}
    ~Fd();
    Fd(Fd&& o) noexcept : fd_(o.release()) {}
    Fd& operator=(Fd&& o) noexcept;
    int get() const { return fd_; }
    int release() {
        int f = fd_;
        fd_ = -1;
        return f;
    }
    explicit operator bool() const { return fd_ >= 0; }

  private:
    int fd_ = -1;
};

// A descriptor shared by its holders, closed with the last of them.
class SharedFd {
  public:
    SharedFd() = default;
    explicit SharedFd(std::shared_ptr<const Fd> fd) : fd_(std::move(fd)) {}
    int get() const { return fd_ ? fd_->get() : -1; }
    explicit operator bool() const { return fd_ && *fd_; }

  private:
    std::shared_ptr<const Fd> fd_;
};

// The device root's descriptor, kept open from the first resolution under
// a root until the root setting names another directory or its owner (the
// component's state, component/runtime.h) goes.  A root directory replaced
// at the same path (deleted, or renamed and another made in its place) is
// noticed when a resolution beneath the kept descriptor does not find a
// name (ENOENT, ENOTDIR) and when the name is the root itself: then
// st_dev/st_ino of the path are compared with those of the kept descriptor
// and the path is opened again when they differ, and the resolution is
// done once more.  Until then names that exist in the directory that was
// the root are found there, as for a process whose working directory was
// moved.  A root that no longer exists leaves the holder empty.
class RootDirectory {
  public:
    // The directory at `path` ("" or "/" for the host's root); empty when
    // it does not exist or is not a directory.
    SharedFd open(std::string_view path);
    // Compares the path with the kept descriptor, as above; true when the
    // path now names another directory than the one `open` gave (or none).
    bool replaced(std::string_view path);

  private:
    SharedFd reopen(const std::string& path);

    std::mutex mutex_;
    std::string path_;
    SharedFd fd_;
    uint64_t dev_ = 0, ino_ = 0;
};

struct ResolvedName {
    // The host path as the name was found (root, then the components as
    // they exist or as written), links in it not resolved: for messages and
    // trash records.  The entry is reached through `dir` and `leaf`.
    std::string host_path;
    SharedFd root;              // the device root (O_PATH); open when it exists
    Fd dir;                     // the directory holding the entry, resolved beneath the root (O_PATH)
    std::string rel;            // the entry relative to the root, links not resolved ("." for the root)
    std::string leaf;           // the entry's host name in `dir` ("." for the root)
    bool parent_exists = false; // the directory that holds the last component exists
    bool exists = false;        // the named entry exists (a link itself counts)
    bool is_root = false;       // the name is the device root itself
};

// The device root as a host directory, without a trailing slash ("" for
// "/").  The platform layer reads no settings: the component supplies this
// function (component/device_root.cpp) from the host's "device_root"
// setting, and every function here that takes a `root` is passed it.
std::string device_root();
// The same without a copy: the host's own text, read at once (a host may
// change it between calls).
std::string_view device_root_view();
// The device root's kept descriptor: the component supplies it too, from
// its state (component/device_root.cpp).
RootDirectory& kept_root();

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

// Opens `rel` (a host path relative to the root `root_fd`) beneath the
// root, the final link followed unless `flags` hold O_NOFOLLOW.  With
// O_CREAT a dangling link creates its target inside the root or fails.
// Returns the descriptor, or -1 with errno (ELOOP for a loop, EXDEV for a
// name that would leave the root).
int open_beneath(int root_fd, const std::string& rel, int flags, unsigned mode = 0);
// The same for a resolved entry (links followed inside the root).
int open_resolved(const ResolvedName& r, int flags, unsigned mode = 0);
// Opens a device name (a final link followed inside the root) with `flags`:
// at once when the name exists as written, else through resolve_device_name.
// -1 with the last error set (2, 3, the name's own error); *dangling, when
// given, tells that the name is a link whose target does not exist.
int open_device_name(std::u16string_view name, int flags, bool* dangling = nullptr);
// The Win32 code of an errno of the resolution: 1921 for a loop, 5 for a
// name that would leave the root, else as win32_from_errno.
uint32_t win32_from_resolve_errno(int err);

// A host path for programs and libraries that take one (processes, shell,
// archives): the entry resolved beneath the root with every link replaced
// by its target, so that the path holds no symbolic link and lies inside
// the root when it is made.  `exists` tells whether the entry exists; when
// it does not, the path ends with the missing names as written, below the
// last folder that exists.  False with the last error for a bad name or a
// missing root.
bool resolve_host_path(std::u16string_view name, std::string& path, bool& exists);
// The same under `root`, the Win32 code in *error.
bool resolve_host_path(std::string_view root, std::u16string_view name, std::string& path, bool& exists,
                       uint32_t* error);

// The device name ("\dir\file") of a host path under the root, or "" when
// the path lies outside it.
std::u16string device_name_of(std::string_view root, std::string_view host_path);

} // namespace kp::platform
