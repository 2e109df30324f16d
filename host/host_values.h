// host_values.h - the host's side of values: Value <-> argument storage,
// results and variants; host-made string buffers; the fit of a value to a
// parameter type; procedures called back by the component.
#pragma once

#include <memory>
#include <new>
#include <string>
#include <vector>

#include "host.h"
#include "wtf8.h"

struct kp_procedure {
    std::shared_ptr<kp::host::Procedure> fn;
};

namespace kp::host {

// Currency of value * scale millionths, or of a whole number of millionths;
// false out of the 80-bit range.
bool currency_from_integer(int64_t value, unsigned scale, uint8_t (&cy)[10]);
bool currency_from_millionths(double millionths, uint8_t (&cy)[10]);

// The allocator of the current host for the calling thread (conversions).
kp_allocator* current_allocator();

// Host-made buffers (text or binary), reference count 1, owned by `alloc`.
char16_t* make_text(kp_allocator* alloc, std::u16string_view text);
char16_t* make_binary(kp_allocator* alloc, const std::vector<uint8_t>& bytes);
void release_buffer(char16_t* chars);

Value value_from_result(const void* value, uint32_t type);
Value value_from_variant(const kp_variant* v);
// Builds a host variant holding `value` (a Variable gives its referenced value).
void value_to_variant(kp_allocator* alloc, const Value& value, kp_variant* v);
void destroy_variant(kp_variant* v);

// 2 exact, 1 convertible, -1 no fit (with `issue` for a value out of range).
int fit_score(const Value& value, uint16_t param, std::string* issue);

// Storage of one call's arguments; released at destruction.  The first
// arguments live in the object itself (no allocation for a call of up to
// four arguments and eight parameters), the others on the heap; a slot
// never moves once its address is in the argument vector.
class Marshalled {
  public:
    explicit Marshalled(kp_allocator* alloc) : alloc_(alloc) {}
    ~Marshalled();
    Marshalled(const Marshalled&) = delete;
    Marshalled& operator=(const Marshalled&) = delete;
    bool add(const Value& value, uint16_t param, std::string* issue);
    // Null when there is no argument.
    void** argv() { return argc_ == 0 ? nullptr : argc_ <= kInlineArgs ? inline_argv_ : more_argv_.data(); }
    // A parameter the call leaves out (optional parameters): a null pointer.
    void add_absent() { push_arg(nullptr); }
    // Variables passed by reference get the values the call left in them.
    void read_back(std::vector<Value>& args);

  private:
    struct Slot {
        uint16_t type = 0;
        bool by_reference = false; // a variable's value, read back after the call
        union {
            int32_t i32;
            int64_t i64;
            double real;
            uint8_t currency[10];
            char16_t* str;
            uintptr_t handle;
            kp_procedure* proc;
        } u{};
        kp_variant variant{};
        std::unique_ptr<kp_procedure> procedure;
    };
    static constexpr std::size_t kInlineSlots = 4;
    static constexpr std::size_t kInlineArgs = 8;
    Slot* inline_slot(std::size_t k) { return std::launder(reinterpret_cast<Slot*>(inline_storage_)) + k; }
    Slot& slot(std::size_t k) { return k < kInlineSlots ? *inline_slot(k) : *more_slots_[k - kInlineSlots]; }
    // The slot after the counted ones, emptied; counted by commit_slot.
    Slot& next_slot();
    void commit_slot() { ++slot_count_; }
    void pop_slot() { --slot_count_; }
    void push_arg(void* arg);
    void pop_arg();
    // The filled slot's argument becomes the next one.
    void push(void* arg) {
        push_arg(arg);
        commit_slot();
    }
    // A number, handle or currency value into a slot of its type.
    static bool fill_scalar(Slot& slot, const Value& x, std::string* issue);

    kp_allocator* alloc_;
    // Built on first use (inline_built_ of them), so that a call pays for
    // the slots it uses only.
    alignas(Slot) unsigned char inline_storage_[kInlineSlots * sizeof(Slot)];
    std::size_t inline_built_ = 0;
    std::vector<std::unique_ptr<Slot>> more_slots_;
    std::size_t slot_count_ = 0;
    void* inline_argv_[kInlineArgs];
    std::vector<void*> more_argv_; // every argument once there are more than kInlineArgs
    std::size_t argc_ = 0;
};

int32_t call_host_procedure(kp_allocator* alloc, kp_procedure* proc, kp_variant* args, int32_t argc,
                            kp_variant* result);

} // namespace kp::host
