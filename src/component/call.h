// call.h - what a handler sees of a call: arguments read from the argument
// vector, the call's error object, and the result handed to the VM's result
// setter.  Handlers are thin:
//
//   KP_HANDLER(DateSys_1) {
//       kp::Call call(frame, context, args);
//       call.ret_string(kp::datetime::date_sys(call.error()));
//       return 0;
//   }
//
// Handlers are declared in the namespace kp::handlers with the name
// <EnglishName>_<overload number from 1>; the function table picks them up
// by that name (see src/component/tables/functions.tbl).  They are written
// with KP_BIND or KP_HANDLER (src/component/bind.h), which keep exceptions
// inside the component.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "component/error.h"
#include "component/strings.h"
#include "component/variant.h"
#include "kp120/vm.h"

namespace kp {

// 10-byte monetary value as it travels.
struct CurrencyBytes {
    uint8_t b[10] = {};
};

class Call {
  public:
    Call(kp_call_frame* frame, kp_call_context* context, void** args);
    ~Call(); // notes the record of a failing call for the component object
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    CXError& error() { return error_; }

    // Arguments by position (0-based).
    std::u16string_view str(int i) const;      // 0x12 / 0x13; null = empty
    char16_t* buffer(int i) const;             // the caller's string buffer itself (0x13 parameters)
    int32_t i32(int i) const;                  // 0x08
    bool boolean(int i) const;                 // 0x01
    int64_t i64(int i) const;                  // 0x09
    double real(int i) const;                  // 0x0C
    CurrencyBytes currency(int i) const;       // 0x0A
    kp_variant* variant(int i) const;          // 0x1F, 0x59: the caller's variant (by reference)
    std::span<const uint8_t> raw(int i) const; // 0x4B / 0x4D: bytes of a string or buffer
    kp_procedure* procedure(int i) const;      // 0x43
    uintptr_t handle(int i) const;             // 0x0E
    // Whether argument i was passed: an optional parameter the caller left
    // out arrives as a null pointer.
    bool given(int i) const { return args_ && args_[i]; }

    // Results (each hands the value to the VM once).
    void ret_bool(bool v);
    void ret_int(int32_t v);
    void ret_int16(int16_t v) { ret_int(static_cast<int32_t>(v)); } // sign-extended
    void ret_int64(int64_t v);
    void ret_real(double v);
    void ret_currency(const CurrencyBytes& v);
    void ret_string(std::u16string_view s);
    void ret_buffer(std::span<const uint8_t> bytes);
    void ret_variant(kp_variant* v); // the caller keeps and destroys its variant
    void ret_handle(uintptr_t h);
    // A value of another type code, as the VM's result setter reads it.
    void ret_typed(const void* value, uint32_t type) { set(value, type); }
    // The empty value of a result type code (0, false, "", an empty buffer,
    // no value): the failure value of a handler that could not finish.
    void ret_empty(uint32_t type);

  private:
    void set(const void* value, uint32_t type);
    kp_call_frame* frame_;
    void** args_;
    CXError error_;
};

} // namespace kp
