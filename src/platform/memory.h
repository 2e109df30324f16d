// memory.h - access to memory named by an address that a program passes as
// an integer (the address forms of the file functions).
//
// Such an address cannot be trusted: it is read or written through the
// kernel, so that an address the process does not map fails with 998
// (ERROR_NOACCESS) instead of crashing the host.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kp::platform {

// Copy `count` bytes from the process's memory at `address`; false (998) when
// the memory cannot be read.
bool read_memory(uintptr_t address, void* out, std::size_t count);
// Copy `count` bytes into the process's memory at `address`; false (998) when
// the memory cannot be written.
bool write_memory(uintptr_t address, const void* in, std::size_t count);

} // namespace kp::platform
