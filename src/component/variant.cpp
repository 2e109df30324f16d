// variant.cpp - the variant's operations tables (one per type code below
// 84), its setters, and conversion through the VM's conversion hooks.
#include "component/variant.h"

#include <array>
#include <cstring>

#include "component/strings.h"

namespace kp::variant {

namespace {

constexpr uint16_t kTypeCount = 84;

bool holds_buffer(uint16_t type) {
    switch (type) {
    case KP_T_STRING:
    case KP_T_STRING_RESULT:
    case KP_T_BUFFER:
    case KP_T_RAW_STRING:
    case KP_T_RAW_DATA:
        return true;
    default:
        return false;
    }
}

void destroy_buffer(kp_variant* v) {
    str::release(v->value.str);
    v->value.str = nullptr;
}
void destroy_plain(kp_variant* v) {
    std::memset(&v->value, 0, sizeof v->value);
}
int32_t copy_buffer(kp_variant* dst, const kp_variant* src) {
    return str::share(&dst->value.str, src->value.str);
}
int32_t copy_plain(kp_variant* dst, const kp_variant* src) {
    dst->value = src->value;
    return 0;
}

const std::array<kp_variant_ops, kTypeCount>& tables() {
    static const std::array<kp_variant_ops, kTypeCount> t = [] {
        std::array<kp_variant_ops, kTypeCount> a{};
        for (uint16_t i = 0; i < kTypeCount; ++i)
            a[i] = holds_buffer(i) ? kp_variant_ops{destroy_buffer, copy_buffer}
                                   : kp_variant_ops{destroy_plain, copy_plain};
        return a;
    }();
    return t;
}

} // namespace

Hooks& hooks() {
    static Hooks h;
    return h;
}

const kp_variant_ops* ops_for(uint16_t type) {
    type &= 0xFF;
    return type < kTypeCount ? &tables()[type] : &tables()[0];
}

void init(kp_variant* v) {
    std::memset(v, 0, sizeof *v);
    v->ops = ops_for(KP_T_NONE);
}

void destroy(kp_variant* v) {
    if (v->ops && v->ops->destroy)
        v->ops->destroy(v);
    else if (holds_buffer(type_of(v)))
        str::release(v->value.str);
    uint16_t status = v->type & KP_VARIANT_STATUS_MASK;
    v->ops = ops_for(KP_T_NONE);
    v->type = status;
    std::memset(&v->value, 0, sizeof v->value);
}

void set_type(kp_variant* v, uint16_t type, bool keep_payload) {
    uint16_t status = v->type & KP_VARIANT_STATUS_MASK;
    if (!keep_payload) {
        if (v->ops && v->ops->destroy) v->ops->destroy(v);
        std::memset(&v->value, 0, sizeof v->value);
    }
    v->ops = ops_for(type);
    v->type = static_cast<uint16_t>((type & 0xFF) | status);
}

void set_bool(kp_variant* v, bool b) {
    set_type(v, KP_T_BOOL);
    v->value.i32 = b ? 1 : 0;
}
void set_int(kp_variant* v, int32_t i) {
    set_type(v, KP_T_INT);
    v->value.i32 = i;
}
void set_int64(kp_variant* v, int64_t i) {
    set_type(v, KP_T_INT64);
    v->value.i64 = i;
}
void set_real(kp_variant* v, double d) {
    set_type(v, KP_T_REAL);
    v->value.real = d;
}
void set_currency(kp_variant* v, const uint8_t (&cy)[10]) {
    set_type(v, KP_T_CURRENCY);
    std::memcpy(v->value.currency, cy, 10);
}
int32_t set_string(kp_variant* v, std::u16string_view s) {
    char16_t* p = nullptr;
    int32_t rc = str::create(s, &p);
    set_type(v, KP_T_STRING_RESULT);
    v->value.str = p;
    return rc;
}
int32_t set_buffer(kp_variant* v, std::span<const uint8_t> b) {
    char16_t* p = nullptr;
    int32_t rc = str::create_binary(b, &p);
    set_type(v, KP_T_BUFFER);
    v->value.str = p;
    return rc;
}

int32_t copy(kp_variant* dst, const kp_variant* src) {
    set_type(dst, type_of(src));
    dst->type = static_cast<uint16_t>((dst->type & KP_VARIANT_STATUS_MASK) | (src->type & 0xFF));
    const kp_variant_ops* ops = ops_for(src->type);
    return ops->copy(dst, src);
}

int32_t convert(kp_variant* v, uint16_t type) {
    type &= 0xFF;
    if (type_of(v) == type) return 0;
    const Hooks& h = hooks();
    if (!h.convert_ex && !h.convert) return 100;
    kp_payload scratch;
    std::memset(&scratch, 0, sizeof scratch);
    int32_t rc = h.convert_ex ? h.convert_ex(&v->value, type_of(v), &scratch, type, 1)
                              : h.convert(&v->value, type_of(v), &scratch, type);
    if (rc >= 100) return rc;
    set_type(v, type);
    if (type == KP_T_REAL_ALT || type == KP_T_STRING)
        v->value.ptr = scratch.ptr;
    else
        v->value = scratch;
    if (h.end) h.end(&scratch);
    return rc;
}

} // namespace kp::variant
