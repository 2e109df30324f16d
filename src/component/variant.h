// variant.h - the any-value type (0x1F): operations tables per type code,
// setters, and conversion through the VM's conversion hooks.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "kp120/vm.h"

namespace kp::variant {

// Operations table of a type code (one table for each code below 84).
const kp_variant_ops* ops_for(uint16_t type);
// A fresh variant of no value.
void init(kp_variant* v);
// Destroys the payload through the current type's operations; leaves no value.
void destroy(kp_variant* v);
// Changes the type: old payload destroyed, new table installed, payload
// zeroed unless `keep_payload`.  Status bits 0x100 and 0x400 are kept.
void set_type(kp_variant* v, uint16_t type, bool keep_payload = false);
inline uint16_t type_of(const kp_variant* v) {
    return static_cast<uint16_t>(v->type & 0xFF);
}

void set_bool(kp_variant* v, bool b);
void set_int(kp_variant* v, int32_t i);
void set_int64(kp_variant* v, int64_t i);
void set_real(kp_variant* v, double d);
void set_currency(kp_variant* v, const uint8_t (&cy)[10]);
int32_t set_string(kp_variant* v, std::u16string_view s); // 0, 100 or 108
int32_t set_buffer(kp_variant* v, std::span<const uint8_t> b);
// Copies src into dst (strings shared by reference).
int32_t copy(kp_variant* dst, const kp_variant* src);

// Converts in place to `type` through the VM's hooks; 0 (or a hook result
// below 100) on success, the hook's error code (>= 100) otherwise, 100 when
// the hooks are not installed.
int32_t convert(kp_variant* v, uint16_t type);

// Installed by bInitKLConvFromVM.
struct Hooks {
    kp_conversion_fn convert = nullptr;
    kp_conversion_ex_fn convert_ex = nullptr;
    kp_conversion_end_fn end = nullptr;
};
Hooks& hooks();

// A variant owned by the component: initialised empty, destroyed with its
// payload when it goes out of scope.  Moving hands the payload over.
class Value {
  public:
    Value() { init(&v_); }
    ~Value() { destroy(&v_); }
    Value(Value&& o) noexcept : v_(o.v_) { init(&o.v_); }
    Value& operator=(Value&& o) noexcept {
        if (this != &o) {
            destroy(&v_);
            v_ = o.v_;
            init(&o.v_);
        }
        return *this;
    }
    Value(const Value&) = delete;
    Value& operator=(const Value&) = delete;
    kp_variant* get() { return &v_; }
    const kp_variant* get() const { return &v_; }

  private:
    kp_variant v_;
};

} // namespace kp::variant
