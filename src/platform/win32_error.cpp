// win32_error.cpp - errno to Win32 mapping and the per-thread last error.
#include "platform/win32_error.h"

#include <cerrno>

namespace kp::platform {

namespace {
thread_local uint32_t t_last_error = 0;
}

uint32_t last_error() { return t_last_error; }
void set_last_error(uint32_t code) { t_last_error = code; }

uint32_t win32_from_errno(int err) {
    switch (err) {
    case 0: return kErrorSuccess;
    case ENOENT: return kErrorFileNotFound;
    case ENOTDIR: return kErrorPathNotFound;
    case EACCES:
    case EPERM:
    case EROFS: return err == EPERM ? kErrorPrivilegeNotHeld : kErrorAccessDenied;
    case EISDIR: return kErrorAccessDenied;
    case EBADF: return kErrorInvalidHandle;
    case ENOMEM: return kErrorNotEnoughMemory;
    case EMFILE:
    case ENFILE: return kErrorTooManyOpenFiles;
    case EEXIST: return kErrorFileExists;
    case EINVAL: return kErrorInvalidParameter;
    case ENOSPC:
    case EDQUOT:
    case EFBIG: return kErrorDiskFull; // the file-size limit: no room for the file to grow
    case ENAMETOOLONG: return kErrorFilenameExcedRange;
    case ENOTEMPTY: return kErrorDirNotEmpty;
    case EXDEV: return kErrorNotSameDevice;
    case EBUSY: return kErrorBusy;
    case EAGAIN: return kErrorLockViolation;
    case EPIPE: return kErrorBrokenPipe;
    case ENOSYS:
    case ENOTSUP: return kErrorNotSupported;
    case EILSEQ: return kErrorInvalidName;
    case ELOOP: return kErrorCantResolveFilename; // too many links on the way: a loop
    case ETIMEDOUT: return kErrorTimeout;
    case ESRCH: return kErrorInvalidHandle;
    default: return kErrorInvalidFunction;
    }
}

uint32_t set_last_error_from_errno() {
    uint32_t code = win32_from_errno(errno);
    t_last_error = code;
    return code;
}

} // namespace kp::platform
