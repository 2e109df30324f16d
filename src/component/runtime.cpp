// runtime.cpp - the state the VM hands the component through its entry
// points, and small accessors over the services block.
#include "component/runtime.h"

#include <atomic>
#include <cstdlib>

namespace kp::runtime {

State& state() {
    static State s;
    return s;
}

std::size_t FamilyStates::next_index() {
    static std::atomic<std::size_t> next{0};
    const std::size_t index = next.fetch_add(1);
    if (index >= kCapacity) std::abort(); // a family state type beyond kCapacity
    return index;
}

bool per_thread_mode() {
    const State& s = state();
    return s.threading && s.threading->multi_threaded != 0 && s.tls_enabled;
}

kp_allocator* allocator() {
    State& s = state();
    if (per_thread_mode() && s.services && s.services->tls_get) {
        if (kp_allocator* a = s.services->tls_get(s.services->vm, s.tls_index)) return a;
    }
    return s.allocator;
}

bool french() {
    return state().language == 0;
}

const kp_services* services() {
    return state().services;
}

const kp_regional_settings& default_regional_settings() {
    static const kp_regional_settings english = {
        {u"Monday", u"Tuesday", u"Wednesday", u"Thursday", u"Friday", u"Saturday", u"Sunday"},
        {u"January", u"February", u"March", u"April", u"May", u"June", u"July", u"August", u"September",
         u"October", u"November", u"December"},
        u"dd/MM/yyyy",
        u"HH:mm:ss",
        u'.',
        nullptr};
    return english;
}

bool query_option(int32_t code) {
    auto fn = service(&kp_services::query_option);
    return fn && fn(vm(), code) != 0;
}

const kp_regional_settings& regional_settings() {
    if (auto fn = service(&kp_services::regional_settings)) {
        if (const kp_regional_settings* r = fn(vm())) return *r;
    }
    return default_regional_settings();
}

std::string setting(const char* name) {
    if (auto fn = service(&kp_services::setting)) {
        if (const char* v = fn(vm(), name)) return v;
    }
    return {};
}

kp_error_record* attach_error() {
    static kp_error_record rec = [] {
        kp_error_record r{};
        r.severity = KP_SEVERITY_NONE;
        return r;
    }();
    return &rec;
}

namespace {
// A copy: the call context's record belongs to the VM and may be gone.
thread_local kp_error_record t_last_failure;
thread_local bool t_has_failure = false;
} // namespace
void note_failure(kp_error_record* rec) {
    if (!rec) return;
    t_last_failure = *rec;
    t_has_failure = true;
}
const kp_error_record* last_error() {
    return t_has_failure ? &t_last_failure : nullptr;
}

} // namespace kp::runtime
