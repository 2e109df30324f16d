// memory.cpp - checked copies from and to program-supplied addresses.
#include "platform/memory.h"

#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "platform/win32_error.h"

namespace kp::platform {

namespace {
// The same copy through a pipe, a page at a time (the least a pipe holds):
// the kernel checks the address on each write or read, failing with EFAULT.
// For where process_vm_readv is missing (qemu-user answers ENOSYS).
bool copy_through_pipe(uintptr_t address, void* local, std::size_t count, bool to_address) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC | O_NONBLOCK) != 0) {
        set_last_error(kErrorNoAccess);
        return false;
    }
    bool ok = true;
    std::size_t done = 0;
    while (ok && done < count) {
        const std::size_t n = std::min<std::size_t>(count - done, 4096);
        char* there = reinterpret_cast<char*>(address + done);
        char* here = static_cast<char*>(local) + done;
        const ssize_t w = write(fds[1], to_address ? here : there, n);
        if (w < 0 && errno == EINTR) continue;
        if (w <= 0) {
            ok = false;
            break;
        }
        std::size_t got = 0;
        while (got < static_cast<std::size_t>(w)) {
            const ssize_t r =
                read(fds[0], (to_address ? there : here) + got, static_cast<std::size_t>(w) - got);
            if (r < 0 && errno == EINTR) continue;
            if (r <= 0) {
                ok = false;
                break;
            }
            got += static_cast<std::size_t>(r);
        }
        done += got;
    }
    close(fds[0]);
    close(fds[1]);
    if (!ok) set_last_error(kErrorNoAccess);
    return ok;
}

bool copy(uintptr_t address, void* local, std::size_t count, bool to_address) {
    if (count == 0) return true;
    if (address == 0) {
        set_last_error(kErrorNoAccess);
        return false;
    }
    std::size_t done = 0;
    while (done < count) {
        iovec here{static_cast<char*>(local) + done, count - done};
        iovec there{reinterpret_cast<void*>(address + done), count - done};
        ssize_t n = to_address ? process_vm_writev(getpid(), &here, 1, &there, 1, 0)
                               : process_vm_readv(getpid(), &here, 1, &there, 1, 0);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && errno == ENOSYS)
            return copy_through_pipe(address + done, static_cast<char*>(local) + done, count - done,
                                     to_address);
        if (n <= 0) {
            set_last_error(kErrorNoAccess);
            return false;
        }
        done += static_cast<std::size_t>(n);
    }
    return true;
}
} // namespace

bool read_memory(uintptr_t address, void* out, std::size_t count) {
    return copy(address, out, count, false);
}
bool write_memory(uintptr_t address, const void* in, std::size_t count) {
    return copy(address, const_cast<void*>(in), count, true);
}

} // namespace kp::platform
