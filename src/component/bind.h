// bind.h - handlers derived from the implementation function's signature.
//
// A handler reads its arguments by position, calls one implementation and
// hands back the result.  KP_BIND writes that adaptor from the C++ signature
// of the implementation, the way pybind11 derives a wrapper:
//
//   KP_BIND(fCompare_1, files::f_compare)
//   KP_BIND(fOpen_2, [](std::u16string_view name, CXError& e) {
//       return files::f_open(name, files::kFoReadWrite, e);   // a fixed argument
//   })
//
// Parameters, in the order of the overload's arguments:
//   std::u16string_view       a string argument (0x12 / 0x13), null = empty
//   int32_t / bool / int64_t  an integer, a boolean, an 8-byte integer
//   double                    a real
//   std::span<const uint8_t>  the bytes of a string or buffer (0x4B / 0x4D)
//   CurrencyBytes             a monetary value
//   kp_variant*               an any-value argument (the caller's variant)
//   kp_procedure*             a procedure reference
//   uintptr_t                 a system handle
//   StringOrBuffer            a string or buffer argument with its kind
//   std::optional<T>          an optional argument of any kind above:
//                             nullopt when the caller left it out (null
//                             pointer in the argument vector)
//   CXError&                  the call's error object (takes no argument)
//   Call&                     the call itself, for what the list does not
//                             cover (takes no argument)
// The return type picks the result setter: void (none), bool, int32_t,
// int16_t (sign-extended integer), int64_t, double, uintptr_t (handle),
// std::u16string or std::u16string_view (string), std::vector<uint8_t>
// (buffer), CurrencyBytes, variant::Value (any value; any_string and
// any_buffer make one).
//
// A family teaches the binding a type of its own by specialising
// kp::bind::Arg (a `slot` flag, `accepts` and `read`) or kp::bind::Result
// (`accepts` and `put`) in its handler file, before the KP_BIND lines that
// use it.
//
// The handler's row of the function table (kp::sig::<name>, generated from
// the table) is checked against the signature at compile time: as many
// argument-taking parameters as the row has parameters, each accepting the
// row's type code, and a return type that accepts the row's result code.  A
// handler the table does not have does not compile.
//
// No exception leaves a handler (src/component/firewall.h): whatever the
// implementation throws becomes the empty value of the result type (0,
// false, "", an empty buffer, no value) with the error recorded: 100 for a
// std::bad_alloc, the code of the string machinery's own failure.
// KP_BIND_NOMEM names the identifier to record instead for memory (0: none):
//
//   KP_BIND_NOMEM(Phonetic_1, kErrPhoneticMemory, transforms::phonetic)
//
// KP_HANDLER writes a handler by hand, for what the binding cannot express
// (a variable count of arguments, results written through the argument
// vector); it gets the same catch-all, with the table row's empty result.
//
// The adaptor is a template instantiated in the handler itself, so a bound
// call costs no more than a handler written out by hand.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <new>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "component/call.h"
#include "component/firewall.h"
#include "component/signature.h"
#include "component/variant.h"
#include "kp120_signatures.h"

namespace kp::bind {

// A string or buffer argument (0x4B / 0x4D) whose kind matters to the
// implementation: the same parameter takes a text or a binary buffer.
class StringOrBuffer {
  public:
    explicit StringOrBuffer(const char16_t* p) : p_(p) {}
    bool binary() const { return str::is_binary(p_); }
    // The characters of a text (for a buffer, its bytes read as UTF-16 units).
    std::u16string_view text() const { return str::view(p_); }
    // The bytes of a buffer, or the UTF-16 units of a text.
    std::span<const uint8_t> bytes() const { return str::bytes(p_); }

  private:
    const char16_t* p_;
};

// Any-value results of a string or a buffer.
inline variant::Value any_string(std::u16string_view text) {
    variant::Value v;
    variant::set_string(v.get(), text);
    return v;
}
inline variant::Value any_buffer(std::span<const uint8_t> bytes) {
    variant::Value v;
    variant::set_buffer(v.get(), bytes);
    return v;
}

// Identifier recorded when an implementation runs out of memory, unless the
// handler names its own.
inline constexpr uint32_t kOutOfMemory = static_cast<uint32_t>(str::kOutOfMemory);

// How a parameter type is read.  `slot` says whether it consumes an argument.
template <typename T> struct Arg {
    static_assert(sizeof(T) == 0, "KP_BIND: no argument reader for this parameter type");
};
template <> struct Arg<std::u16string_view> {
    static constexpr bool slot = true;
    static constexpr bool accepts(uint32_t c) { return c == KP_T_STRING || c == KP_T_STRING_RESULT; }
    static std::u16string_view read(Call& c, int i) { return c.str(i); }
};
template <> struct Arg<int32_t> {
    static constexpr bool slot = true;
    static constexpr bool accepts(uint32_t c) { return c == KP_T_INT; }
    static int32_t read(Call& c, int i) { return c.i32(i); }
};
template <> struct Arg<bool> {
    static constexpr bool slot = true;
    static constexpr bool accepts(uint32_t c) { return c == KP_T_BOOL; }
    static bool read(Call& c, int i) { return c.boolean(i); }
};
template <> struct Arg<int64_t> {
    static constexpr bool slot = true;
    static constexpr bool accepts(uint32_t c) { return c == KP_T_INT64; }
    static int64_t read(Call& c, int i) { return c.i64(i); }
};
template <> struct Arg<double> {
    static constexpr bool slot = true;
    static constexpr bool accepts(uint32_t c) { return c == KP_T_REAL; }
    static double read(Call& c, int i) { return c.real(i); }
};
template <> struct Arg<std::span<const uint8_t>> {
    static constexpr bool slot = true;
    static constexpr bool accepts(uint32_t c) {
        return c == KP_T_RAW_STRING || c == KP_T_RAW_DATA || c == KP_T_BUFFER || c == KP_T_STRING;
    }
    static std::span<const uint8_t> read(Call& c, int i) { return c.raw(i); }
};
template <> struct Arg<CurrencyBytes> {
    static constexpr bool slot = true;
    static constexpr bool accepts(uint32_t c) { return c == KP_T_CURRENCY; }
    static CurrencyBytes read(Call& c, int i) { return c.currency(i); }
};
template <> struct Arg<kp_variant*> {
    static constexpr bool slot = true;
    static constexpr bool accepts(uint32_t c) { return c == KP_T_ANY || c == KP_T_STORABLE; }
    static kp_variant* read(Call& c, int i) { return c.variant(i); }
};
template <> struct Arg<kp_procedure*> {
    static constexpr bool slot = true;
    static constexpr bool accepts(uint32_t c) { return c == KP_T_PROCEDURE; }
    static kp_procedure* read(Call& c, int i) { return c.procedure(i); }
};
// A system handle, or a reference to an interface object (window, image,
// control), which the component only passes on.
template <> struct Arg<uintptr_t> {
    static constexpr bool slot = true;
    static constexpr bool accepts(uint32_t c) {
        return c == KP_T_HANDLE_IN || c == KP_T_HANDLE_OUT || c == KP_T_WINDOW || c == KP_T_IMAGE ||
               c == KP_T_CONTROL;
    }
    static uintptr_t read(Call& c, int i) { return c.handle(i); }
};
template <> struct Arg<StringOrBuffer> {
    static constexpr bool slot = true;
    static constexpr bool accepts(uint32_t c) { return c == KP_T_RAW_STRING || c == KP_T_RAW_DATA; }
    static StringOrBuffer read(Call& c, int i) { return StringOrBuffer(c.buffer(i)); }
};
template <typename T> struct Arg<std::optional<T>> {
    static constexpr bool slot = true;
    static constexpr bool accepts(uint32_t c) { return Arg<T>::accepts(c); }
    static std::optional<T> read(Call& c, int i) {
        if (!c.given(i)) return std::nullopt;
        return Arg<T>::read(c, i);
    }
};
template <> struct Arg<CXError> {
    static constexpr bool slot = false;
    static CXError& read(Call& c, int) { return c.error(); }
};
template <> struct Arg<Call> {
    static constexpr bool slot = false;
    static Call& read(Call& c, int) { return c; }
};

// How a result type is handed to the VM.
template <typename T> struct Result {
    static_assert(sizeof(T) == 0, "KP_BIND: no result setter for this return type");
};
template <> struct Result<bool> {
    static constexpr bool accepts(uint32_t c) { return c == KP_T_BOOL; }
    static void put(Call& c, bool v) { c.ret_bool(v); }
};
template <> struct Result<int32_t> {
    static constexpr bool accepts(uint32_t c) { return c == KP_T_INT; }
    static void put(Call& c, int32_t v) { c.ret_int(v); }
};
template <> struct Result<int16_t> {
    static constexpr bool accepts(uint32_t c) { return c == KP_T_INT; }
    static void put(Call& c, int16_t v) { c.ret_int16(v); }
};
template <> struct Result<int64_t> {
    static constexpr bool accepts(uint32_t c) { return c == KP_T_INT64; }
    static void put(Call& c, int64_t v) { c.ret_int64(v); }
};
template <> struct Result<double> {
    static constexpr bool accepts(uint32_t c) { return c == KP_T_REAL; }
    static void put(Call& c, double v) { c.ret_real(v); }
};
template <> struct Result<uintptr_t> {
    static constexpr bool accepts(uint32_t c) { return c == KP_T_HANDLE_OUT || c == KP_T_HANDLE_IN; }
    static void put(Call& c, uintptr_t v) { c.ret_handle(v); }
};
template <> struct Result<std::u16string> {
    static constexpr bool accepts(uint32_t c) { return c == KP_T_STRING_RESULT; }
    static void put(Call& c, const std::u16string& v) { c.ret_string(v); }
};
template <> struct Result<std::u16string_view> {
    static constexpr bool accepts(uint32_t c) { return c == KP_T_STRING_RESULT; }
    static void put(Call& c, std::u16string_view v) { c.ret_string(v); }
};
template <> struct Result<std::vector<uint8_t>> {
    static constexpr bool accepts(uint32_t c) { return c == KP_T_BUFFER; }
    static void put(Call& c, const std::vector<uint8_t>& v) { c.ret_buffer(v); }
};
template <> struct Result<CurrencyBytes> {
    static constexpr bool accepts(uint32_t c) { return c == KP_T_CURRENCY; }
    static void put(Call& c, const CurrencyBytes& v) { c.ret_currency(v); }
};
template <> struct Result<variant::Value> {
    static constexpr bool accepts(uint32_t c) { return c == KP_T_ANY; }
    static void put(Call& c, variant::Value& v) { c.ret_variant(v.get()); }
};

// The signature of a function, a function pointer or a captureless lambda.
template <typename R, typename... A> struct Signature {};
template <typename F> struct SignatureOf : SignatureOf<decltype(&F::operator())> {};
template <typename R, typename... A> struct SignatureOf<R (*)(A...)> { using type = Signature<R, A...>; };
template <typename R, typename... A> struct SignatureOf<R (*)(A...) noexcept> {
    using type = Signature<R, A...>;
};
template <typename R, typename... A> struct SignatureOf<R(A...)> { using type = Signature<R, A...>; };
template <typename R, typename... A> struct SignatureOf<R(A...) noexcept> {
    using type = Signature<R, A...>;
};
template <typename C, typename R, typename... A> struct SignatureOf<R (C::*)(A...) const> {
    using type = Signature<R, A...>;
};
template <typename C, typename R, typename... A> struct SignatureOf<R (C::*)(A...) const noexcept> {
    using type = Signature<R, A...>;
};

template <typename T> using ArgOf = Arg<std::remove_cvref_t<T>>;

// Argument position of each parameter (-1 for those that take none).
template <typename... A> constexpr std::array<int, sizeof...(A)> positions() {
    std::array<int, sizeof...(A)> r{};
    int next = 0;
    std::size_t k = 0;
    ((r[k++] = ArgOf<A>::slot ? next++ : -1), ...);
    return r;
}

template <typename F, typename R, typename... A, std::size_t... I>
inline void run(Call& call, F& fn, Signature<R, A...>, std::index_sequence<I...>) {
    constexpr auto at = positions<A...>();
    (void)at;
    if constexpr (std::is_void_v<R>) {
        fn(ArgOf<A>::read(call, at[I])...);
    } else {
        decltype(auto) r = fn(ArgOf<A>::read(call, at[I])...);
        Result<std::remove_cvref_t<R>>::put(call, r);
    }
}

// The result type's empty value, handed back after a failure.
template <typename R> inline void put_empty(Call& call) {
    if constexpr (!std::is_void_v<R>) {
        std::remove_cvref_t<R> empty{};
        Result<std::remove_cvref_t<R>>::put(call, empty);
    }
}

// Whether a signature agrees with the table's row (type words without the
// bits 0x8000 and 0x4000, which only the VM reads).
template <typename T> constexpr bool arg_agrees(const sig::Overload& o, int& next) {
    if constexpr (!ArgOf<T>::slot) {
        return true;
    } else {
        if (next >= o.count) return false;
        return ArgOf<T>::accepts(o.params[next++] & 0xFFu);
    }
}
template <typename R, typename... A> constexpr bool agrees(const sig::Overload& o, Signature<R, A...>) {
    const uint32_t result = o.result & 0xFFu;
    if constexpr (std::is_void_v<R>) {
        if (result != KP_T_NONE) return false;
    } else {
        if (!Result<std::remove_cvref_t<R>>::accepts(result)) return false;
    }
    int next = 0;
    if (!(arg_agrees<A>(o, next) && ...)) return false;
    // A handler that takes the Call itself reads the arguments past its
    // parameters from it.
    constexpr bool reads_call = (std::is_same_v<std::remove_cvref_t<A>, Call> || ...);
    return reads_call ? next <= o.count : next == o.count;
}

template <const sig::Overload& O, typename F, typename R, typename... A>
inline int32_t invoke_sig(kp_call_frame* frame, kp_call_context* context, void** args, F& fn,
                          Signature<R, A...> sig, uint32_t memory_id) noexcept {
    static_assert(agrees(O, Signature<R, A...>{}),
                  "KP_BIND: the signature disagrees with the handler's row of the function table");
    Call call(frame, context, args);
    try {
        run(call, fn, sig, std::index_sequence_for<A...>{});
    } catch (...) {
        firewall::record_current(call.error().record(), memory_id);
        try {
            put_empty<R>(call);
        } catch (...) {
            // The VM's result setter itself failed: the error stays recorded.
        }
    }
    return 0;
}

// Reads the arguments `fn` declares, calls it, and hands its result to the
// VM; `memory_id` is recorded when the implementation runs out of memory.
template <const sig::Overload& O, typename F>
inline int32_t invoke(kp_call_frame* frame, kp_call_context* context, void** args, F&& fn,
                      uint32_t memory_id = kOutOfMemory) noexcept {
    using Fn = std::decay_t<F>;
    typename SignatureOf<std::remove_pointer_t<Fn>>::type sig{};
    return invoke_sig<O>(frame, context, args, fn, sig, memory_id);
}

// The catch-all of a hand-written handler: the table row gives the empty
// result handed back after a failure.
template <const sig::Overload& O>
inline int32_t guard(kp_call_frame* frame, kp_call_context* context, void** args,
                     int32_t (*body)(kp_call_frame*, kp_call_context*, void**)) noexcept {
    try {
        return body(frame, context, args);
    } catch (...) {
        Call call(frame, context, args);
        firewall::record_current(call.error().record());
        try {
            call.ret_empty(O.result);
        } catch (...) {
            // The VM's result setter itself failed: the error stays recorded.
        }
    }
    return 0;
}

} // namespace kp::bind

// One handler, derived from an implementation function or a small lambda.
#define KP_BIND(name, ...)                                                                                   \
    int32_t name(kp_call_frame* frame, kp_call_context* context, void** args) noexcept {                     \
        return ::kp::bind::invoke<::kp::sig::name>(frame, context, args, __VA_ARGS__);                       \
    }
// The same, recording `memory_id` (0: nothing) when memory runs out.
#define KP_BIND_NOMEM(name, memory_id, ...)                                                                  \
    int32_t name(kp_call_frame* frame, kp_call_context* context, void** args) noexcept {                     \
        return ::kp::bind::invoke<::kp::sig::name>(frame, context, args, __VA_ARGS__, memory_id);            \
    }
// A handler written by hand: the body follows the macro.
#define KP_HANDLER(name)                                                                                     \
    static int32_t name##_body(kp_call_frame*, kp_call_context*, void**);                                    \
    int32_t name(kp_call_frame* frame, kp_call_context* context, void** args) noexcept {                     \
        return ::kp::bind::guard<::kp::sig::name>(frame, context, args, &name##_body);                       \
    }                                                                                                        \
    static int32_t name##_body(kp_call_frame* frame, kp_call_context* context, void** args)
