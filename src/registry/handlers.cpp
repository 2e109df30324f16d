// handlers.cpp - the handlers of the registry functions.  Each selects the
// registry database named by the host's "registry" setting, then calls one
// implementation of registry.h.
#include <cstring>

#include "component/bind.h"
#include "component/runtime.h"
#include "registry/registry.h"

namespace kp::handlers {

namespace {

namespace reg = kp::registry;
using reg::ValueRef;

void db() {
    platform::registry::use_database(runtime::setting(KP_SETTING_REGISTRY));
}

// A value given by its name or by its number.
ValueRef ref(std::u16string_view n) {
    return ValueRef::named(n);
}
ValueRef ref(int32_t n) {
    return ValueRef::numbered(n);
}

// Addresses travel as 32-bit integers.
uintptr_t address_of(int32_t v) {
    return static_cast<uintptr_t>(static_cast<uint32_t>(v));
}

variant::Value value_of(const reg::Data& d) {
    variant::Value v;
    switch (d.kind) {
    case reg::Data::Kind::Text:
        variant::set_string(v.get(), d.text);
        break;
    case reg::Data::Kind::Integer:
        variant::set_int(v.get(), d.integer);
        break;
    case reg::Data::Kind::Bytes:
        variant::set_buffer(v.get(), d.bytes);
        break;
    case reg::Data::Kind::Empty:
        break; // no value
    }
    return v;
}

// The by-reference boolean that tells whether the value was read.
int32_t query_with_flag(kp_call_frame* frame, kp_call_context* context, void** args, bool by_number) {
    Call call(frame, context, args);
    db();
    bool read = false;
    variant::Value v = value_of(by_number ? reg::query_value(call.str(0), ref(call.i32(1)), &read)
                                          : reg::query_value(call.str(0), ref(call.str(1)), &read));
    if (args && args[2]) {
        int32_t flag = read ? 1 : 0;
        std::memcpy(args[2], &flag, sizeof flag);
    }
    call.ret_variant(v.get());
    return 0;
}

using Str = std::u16string_view;

// The functions on one value, given by its name (N = Str) or by its number
// (N = int32_t).
template <typename N> struct OnValue {
    static variant::Value query(Str k, N n) { return db(), value_of(reg::query_value(k, ref(n))); }
    static bool exists(Str k, N n) { return db(), reg::exists(k, ref(n)); }
    static bool text(Str k, N n, Str v, CXError& e) { return db(), reg::set_string(k, ref(n), v, e); }
    static bool integer(Str k, N n, int32_t v, CXError& e) { return db(), reg::set_integer(k, ref(n), v, e); }
    static bool real(Str k, N n, double v, CXError& e) { return db(), reg::set_real(k, ref(n), v, e); }
    static bool currency(Str k, N n, CurrencyBytes v, CXError& e) {
        return db(), reg::set_currency(k, ref(n), v.b, e);
    }
    static bool boolean(Str k, N n, bool v, CXError& e) {
        return db(), reg::set_integer(k, ref(n), v ? 1 : 0, e);
    }
    static bool memory(Str k, N n, int32_t a, int32_t size, CXError& e) {
        return db(), reg::set_memory(k, ref(n), address_of(a), size, e);
    }
};
using ByName = OnValue<Str>;
using ByNumber = OnValue<int32_t>;

} // namespace

KP_BIND(RegistryQueryValue_1, ByName::query)
KP_HANDLER(RegistryQueryValue_2) {
    return query_with_flag(frame, context, args, false);
}
KP_BIND(RegistryQueryValue_3, ByNumber::query)
KP_HANDLER(RegistryQueryValue_4) {
    return query_with_flag(frame, context, args, true);
}

KP_BIND(RegistrySetValue_1, ByName::text)
KP_BIND(RegistrySetValue_2, ByName::integer)
KP_BIND(RegistrySetValue_3, ByName::real)
KP_BIND(RegistrySetValue_4, ByName::currency)
KP_BIND(RegistrySetValue_5, ByName::boolean)
KP_BIND(RegistrySetValue_6, ByName::memory)
KP_BIND(RegistrySetValue_7, ByNumber::text)
KP_BIND(RegistrySetValue_8, ByNumber::integer)
KP_BIND(RegistrySetValue_9, ByNumber::real)
KP_BIND(RegistrySetValue_10, ByNumber::currency)
KP_BIND(RegistrySetValue_11, ByNumber::boolean)
KP_BIND(RegistrySetValue_12, ByNumber::memory)

// Without a key, the walk starts at HKEY_CURRENT_USER.
KP_BIND(RegistryFirstSubKey_1, [] { return db(), reg::first_subkey(u"HKEY_CURRENT_USER"); })
KP_BIND(RegistryFirstSubKey_2, [](Str k) { return db(), reg::first_subkey(k); })
KP_BIND(RegistryNextKey_1, [](Str k) { return db(), reg::next_key(k); })
KP_BIND(RegistryDeleteKey_1, [](Str k, CXError& e) { return db(), reg::delete_key(k, e); })
KP_BIND(RegistryCreateKey_1, [](Str k, CXError& e) { return db(), reg::create_key(k, e); })

KP_BIND(RegistryExist_1, [](Str k) { return db(), reg::exists(k); })
KP_BIND(RegistryExist_2, ByName::exists)
KP_BIND(RegistryExist_3, ByNumber::exists)
KP_BIND(RegistryDeleteValue_1, [](Str k, Str n, CXError& e) { return db(), reg::delete_value(k, n, e); })
KP_BIND(RegistryListValue_1, [](Str k) { return db(), reg::list_values(k, false); })
KP_BIND(RegistryListValue_2, [](Str k, bool types) { return db(), reg::list_values(k, types); })
KP_BIND(RegistrySeek_1, [](Str k, Str t) { return db(), reg::seek(k, t, reg::kSeekDefault); })
KP_BIND(RegistrySeek_2, [](Str k, Str t, int32_t options) { return db(), reg::seek(k, t, options); })

} // namespace kp::handlers
