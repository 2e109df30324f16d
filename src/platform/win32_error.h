// win32_error.h - system errors as Win32 error codes.
//
// Every platform call that fails leaves a Win32 code in the calling thread's
// last-error slot (GetLastError semantics); POSIX errno values are mapped to
// the code the device would have reported.
#pragma once

#include <cstdint>

namespace kp::platform {

enum Win32Error : uint32_t {
    kErrorSuccess = 0,
    kErrorInvalidFunction = 1,
    kErrorFileNotFound = 2,
    kErrorPathNotFound = 3,
    kErrorTooManyOpenFiles = 4,
    kErrorAccessDenied = 5,
    kErrorInvalidHandle = 6,
    kErrorNotEnoughMemory = 8,
    kErrorInvalidData = 13,
    kErrorOutOfMemory = 14,
    kErrorInvalidDrive = 15,
    kErrorCurrentDirectory = 16,
    kErrorNotSameDevice = 17,
    kErrorNoMoreFiles = 18,
    kErrorWriteProtect = 19,
    kErrorSharingViolation = 32,
    kErrorLockViolation = 33,
    kErrorHandleEof = 38,
    kErrorNotSupported = 50,
    kErrorFileExists = 80,
    kErrorInvalidParameter = 87,
    kErrorBrokenPipe = 109,
    kErrorDiskFull = 112,
    kErrorCallNotImplemented = 120,
    kErrorInsufficientBuffer = 122,
    kErrorInvalidName = 123,
    kErrorNegativeSeek = 131,
    kErrorDirNotEmpty = 145,
    kErrorNotLocked = 158,
    kErrorBadPathname = 161,
    kErrorBusy = 170,
    kErrorAlreadyExists = 183,
    kErrorFilenameExcedRange = 206,
    kErrorMoreData = 234,
    kErrorNoMoreItems = 259,
    kErrorDirectory = 267,
    kErrorNotOwner = 288,
    kErrorPrivilegeNotHeld = 1314,
    kErrorInvalidTime = 1901,
    kErrorCantResolveFilename = 1921,
    kErrorNoAccess = 998,
    kErrorFileInvalid = 1006,
    kErrorTimeout = 1460,
};

// The calling thread's last error (GetLastError / SetLastError).
uint32_t last_error();
void set_last_error(uint32_t code);

// The Win32 code for a POSIX errno value.
uint32_t win32_from_errno(int err);
// Records win32_from_errno(errno) as the last error and returns it.
uint32_t set_last_error_from_errno();

} // namespace kp::platform
