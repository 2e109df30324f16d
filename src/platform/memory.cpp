// memory.cpp - checked copies from and to program-supplied addresses.
#include "platform/memory.h"

#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>

#include "platform/win32_error.h"

namespace kp::platform {

namespace {
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
