// current_object.cpp - the name of the VM object whose code runs, served
// through the services slot current_object_name.
#include "services.h"

namespace kp::host {

void CurrentObject::set(std::u16string_view name) {
    std::lock_guard<std::mutex> lock(mu_);
    // Keeps every name it has handed out alive: a handler that read the
    // pointer may still hold it when another thread changes the name.
    names_.emplace_back(name);
    current_ = names_.back().empty() ? nullptr : names_.back().c_str();
}

const char16_t* CurrentObject::get() const {
    std::lock_guard<std::mutex> lock(mu_);
    return current_;
}

} // namespace kp::host
