// runtime.h - what the entry points received from the VM: services block,
// message callback, allocators, threading, language and locale words, and
// the one place where families keep their own state (family_state).  This
// is the component's whole global state; it lives from the calls that set it
// until the module is unloaded.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "kp120/component.h"
#include "platform/paths.h"

namespace kp::runtime {

// The state families keep for the module's lifetime (the programs' memory
// zones, the archives the old zip functions name): one object a type, which
// the family defines in its own code and reaches with family_state<T>().  It
// is made at the first use, once whatever the threads.  kCapacity types at
// most; one more stops the module at its first use.
class FamilyStates {
  public:
    static constexpr std::size_t kCapacity = 8;
    template <typename T> T& get() {
        static const std::size_t index = next_index();
        Slot& s = slots_[index];
        std::call_once(s.once, [&s] { s.object = std::make_shared<T>(); });
        return *static_cast<T*>(s.object.get());
    }

  private:
    struct Slot {
        std::once_flag once;
        std::shared_ptr<void> object;
    };
    static std::size_t next_index();
    std::array<Slot, kCapacity> slots_;
};

struct State {
    kp_services* services = nullptr;
    kp_message_fn message_callback = nullptr;
    kp_allocator* allocator = nullptr;
    uint32_t tls_index = 0;
    bool tls_enabled = false;
    const kp_threading* threading = nullptr;
    int32_t language = 1; // 0 French, 1 English
    uintptr_t locale_words[3] = {0, 0, 0};
    uintptr_t word13 = 0, word27 = 0;
    // VM module of bInitKLConvFromVM.
    void* vm_module = nullptr;
    int32_t conv_revision = 0, conv_mode = 0;
    // The device root's descriptor, kept between calls (platform/paths.h).
    std::shared_ptr<platform::RootDirectory> device_root = std::make_shared<platform::RootDirectory>();
    // The families' own state; a copy of State shares it.
    std::shared_ptr<FamilyStates> families = std::make_shared<FamilyStates>();
};
State& state();

// The family state of type T (see FamilyStates).
template <typename T> T& family_state() {
    return state().families->template get<T>();
}

// The allocator for this thread: the thread's own in per-thread mode, else
// the VM's single allocator (may be null when no VM installed one).
kp_allocator* allocator();
bool per_thread_mode();
bool french();

// Services helpers; every one tolerates a missing block or slot.
const kp_services* services();
bool query_option(int32_t code);
const kp_regional_settings& regional_settings();
// The settings used when the VM gives none: English names, "dd/MM/yyyy",
// "HH:mm:ss" and '.'.
const kp_regional_settings& default_regional_settings();
// Host setting by name (KP_SETTING_*), empty when absent.
std::string setting(const char* name);

// A slot of a versioned block of the VM (kp_services, kp_display,
// kp_table_interface), or null when there is no block, its `size` does not
// cover the slot (KP_HAS_SLOT of kp120/vm.h) or the slot is empty.
template <typename Block, typename F> F slot(const Block* block, F Block::*member) {
    if (!block) return nullptr;
    const auto end = static_cast<std::size_t>(reinterpret_cast<const char*>(&(block->*member)) -
                                              reinterpret_cast<const char*>(block)) +
                     sizeof(F);
    return block->size >= end ? block->*member : nullptr;
}
// A slot of the services block; call it with vm().
template <typename F> F service(F kp_services::*member) {
    return slot<kp_services>(state().services, member);
}
inline void* vm() {
    return state().services ? state().services->vm : nullptr;
}

// Error state of the component outside calls (the release check at attach),
// and the record of the last failing call, reported by the component object.
kp_error_record* attach_error();
void note_failure(kp_error_record* rec);
const kp_error_record* last_error();

} // namespace kp::runtime
