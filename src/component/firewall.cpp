// firewall.cpp - what the catch-all records.
#include "component/firewall.h"

#include <exception>
#include <new>

#include "component/error.h"
#include "component/runtime.h"

namespace kp::firewall {

void record_current(kp_error_record* rec, uint32_t memory_id, uint32_t family_id) noexcept {
    if (!rec) return;
    uint32_t id = family_id;
    int32_t severity = KP_SEVERITY_ERROR;
    try {
        throw;
    } catch (const std::bad_alloc&) {
        id = memory_id;
    } catch (const std::exception&) {
    } catch (...) {
        severity = KP_SEVERITY_FATAL;
    }
    if (id == 0) return;
    CXError err(rec);
    try {
        // 100 has no definition row: set() makes it the fatal error whose
        // message names the identifier, as the string machinery does.
        err.set(id);
        if (id != kOutOfMemory) err.set_severity(severity);
    } catch (...) {
        // No memory left even for the message: the bare identifier.
        rec->id = id;
        rec->severity = id == kOutOfMemory ? KP_SEVERITY_FATAL : severity;
    }
}

// Outside a call there is no call context: the record is the calling
// thread's own (entry points and the component's threads run on any
// thread), and the component object reports it as the thread's last error.
void record_outside_call() noexcept {
    thread_local kp_error_record rec;
    rec = kp_error_record{};
    rec.severity = KP_SEVERITY_NONE;
    record_current(&rec);
    runtime::note_failure(&rec);
}

} // namespace kp::firewall
