// firewall.h - no exception leaves the component.
//
// Every handler and every exported entry point is noexcept at the boundary
// and ends in one catch-all that records what was thrown and hands back the
// failure value:
//   - std::bad_alloc: out of memory, 100 as the string machinery records it
//     (or the identifier the handler names for its own memory failures);
//   - any other std::exception (a system_error, a length_error, ...): the
//     family's identifier, 80041 unless the handler names its own, with
//     severity 2: the standard library leaves its objects valid when it
//     throws, so the program may go on;
//   - anything else (an int, a type the component does not know): the same
//     identifier with severity 3, since nothing says what the throw left
//     half done.
// Threads the component starts run their body under thread_top.
#pragma once

#include <cstdint>

#include "kp120/vm.h"

namespace kp::firewall {

inline constexpr uint32_t kOutOfMemory = 100;
// "An internal object cannot be created": the identifier of a failure that
// the implementation did not report itself.
inline constexpr uint32_t kInternalFailure = 80041;

// Records the exception being handled in `rec` (null: nothing).  Call it
// only inside a catch block.  `memory_id` 0 records nothing for bad_alloc.
void record_current(kp_error_record* rec, uint32_t memory_id = kOutOfMemory,
                    uint32_t family_id = kInternalFailure) noexcept;

// The catch-all of an exported entry point: runs `fn` and returns its value,
// or `failure` with the exception recorded as the calling thread's last
// error (the one the component object reports to that thread).
void record_outside_call() noexcept;
template <typename R, typename F> R entry(R failure, F&& fn) noexcept {
    try {
        return fn();
    } catch (...) {
        record_outside_call();
        return failure;
    }
}
template <typename F> void entry_void(F&& fn) noexcept {
    try {
        fn();
    } catch (...) {
        record_outside_call();
    }
}

// The top of a thread the component starts: runs `fn`; an exception ends the
// thread's work and is recorded as that thread's last error.
template <typename F> void thread_top(F&& fn) noexcept {
    entry_void(static_cast<F&&>(fn));
}

} // namespace kp::firewall
