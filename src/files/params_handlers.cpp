// params_handlers.cpp - handlers of InitParameter, SaveParameter,
// LoadParameter and DeleteParameter.
#include "component/bind.h"
#include "component/strings.h"
#include "files/params.h"

namespace kp::handlers {

namespace {
using files::params::Param;

std::u16string text_of(const kp_variant* v) {
    if (!v) return {};
    uint16_t t = variant::type_of(v);
    if (t == KP_T_STRING || t == KP_T_STRING_RESULT || t == KP_T_DATE || t == KP_T_TIME || t == KP_T_DATETIME)
        return std::u16string(str::view(v->value.str));
    // Anything else as the VM writes it as text.
    variant::Value copy;
    if (variant::copy(copy.get(), v) != 0 || variant::convert(copy.get(), KP_T_STRING) >= 100) return {};
    return std::u16string(str::view(copy.get()->value.str));
}

// A host value as the store keeps it; null or no value: none.
bool param_of(const kp_variant* v, Param& out) {
    if (!v) return false;
    switch (variant::type_of(v)) {
    case KP_T_NONE:
        return false;
    case KP_T_BOOL:
        out = Param::boolean(v->value.i32 != 0);
        return true;
    case KP_T_INT:
        out = Param::integer(v->value.i32);
        return true;
    case KP_T_INT64:
        out = Param::int64(v->value.i64);
        return true;
    case KP_T_REAL:
    case KP_T_REAL_ALT:
        out = Param::real(v->value.real);
        return true;
    case KP_T_BUFFER: {
        std::span<const uint8_t> b = str::bytes(v->value.str);
        out = Param::buffer(std::vector<uint8_t>(b.begin(), b.end()));
        return true;
    }
    default:
        out = Param::string(text_of(v));
        return true;
    }
}

variant::Value value_of(const Param& p) {
    variant::Value v;
    switch (p.kind) {
    case Param::Kind::None:
        break;
    case Param::Kind::Bool:
        variant::set_bool(v.get(), p.i != 0);
        break;
    case Param::Kind::Int:
        variant::set_int(v.get(), static_cast<int32_t>(p.i));
        break;
    case Param::Kind::Int64:
        variant::set_int64(v.get(), p.i);
        break;
    case Param::Kind::Real:
        variant::set_real(v.get(), p.r);
        break;
    case Param::Kind::Text:
        variant::set_string(v.get(), p.text);
        break;
    case Param::Kind::Bytes:
        variant::set_buffer(v.get(), p.bytes);
        break;
    }
    return v;
}

// The stored value, in the kind of the default when one is given.  The store
// keeps a currency as its decimal text (the registry has no type for it):
// with a currency default, the text read back is converted to a currency
// again, through the VM's conversion; text that does not convert stays text.
variant::Value load(std::u16string_view name, const kp_variant* fallback) {
    Param f;
    bool has = param_of(fallback, f);
    variant::Value v = value_of(files::params::load_parameter(name, has ? &f : nullptr));
    if (fallback && variant::type_of(fallback) == KP_T_CURRENCY &&
        variant::type_of(v.get()) != KP_T_CURRENCY) {
        variant::Value cy;
        if (variant::copy(cy.get(), v.get()) == 0 && variant::convert(cy.get(), KP_T_CURRENCY) < 100)
            return cy;
    }
    return v;
}
} // namespace

KP_BIND(InitParameter_1,
        [](int32_t mode, CXError& err) { return files::params::init_parameter(mode, u"", err); })
KP_BIND(InitParameter_2, [](int32_t mode, kp_variant* location, CXError& err) {
    return files::params::init_parameter(mode, text_of(location), err);
})
KP_BIND(SaveParameter_1, [](std::u16string_view name, kp_variant* value, CXError& err) {
    Param p = Param::string(u"");
    param_of(value, p);
    files::params::save_parameter(name, p, err);
})
KP_BIND(LoadParameter_1, [](std::u16string_view name) { return load(name, nullptr); })
KP_BIND(LoadParameter_2, [](std::u16string_view name, kp_variant* fallback) { return load(name, fallback); })
KP_BIND(DeleteParameter_1, files::params::delete_parameter)
KP_BIND(DeleteParameter_2, files::params::delete_current_object)
// The form with a table control deletes the group of the object whose code
// runs (the control's window), as the form without argument: the control
// itself carries no name the component can read.
KP_BIND(DeleteParameter_3, [](uintptr_t, CXError& err) { return files::params::delete_current_object(err); })

} // namespace kp::handlers
