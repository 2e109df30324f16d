// host_values.cpp - values across the boundary, as the VM handles them:
// argument storage (the marshalled call frame), results and variants.
#include "host_values.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace kp::host {

// ------------------------------------------------------------------------
// Value factories
// ------------------------------------------------------------------------

Value Value::boolean(bool v) {
    Value x;
    x.kind = Kind::Bool;
    x.b = v;
    return x;
}
Value Value::integer(int64_t v) {
    Value x;
    x.kind = Kind::Int;
    x.i = v;
    return x;
}
Value Value::int64(int64_t v) {
    Value x;
    x.kind = Kind::Int64;
    x.i = v;
    return x;
}
Value Value::real(double v) {
    Value x;
    x.kind = Kind::Real;
    x.r = v;
    return x;
}
Value Value::currency(const uint8_t (&b)[10]) {
    Value x;
    x.kind = Kind::Currency;
    std::memcpy(x.cy, b, 10);
    return x;
}
Value Value::string(std::u16string v) {
    Value x;
    x.kind = Kind::String;
    x.s = std::move(v);
    return x;
}
Value Value::buffer(std::vector<uint8_t> v) {
    Value x;
    x.kind = Kind::Buffer;
    x.bytes = std::move(v);
    return x;
}
Value Value::procedure(Procedure p) {
    Value x;
    x.kind = Kind::Procedure;
    x.proc = std::make_shared<Procedure>(std::move(p));
    return x;
}
Value Value::variable(Value initial) {
    Value x;
    x.kind = Kind::Variable;
    x.ref = std::make_shared<Value>(std::move(initial));
    return x;
}

const char* Host::type_name(uint16_t code) {
    switch (code & 0xFF) {
    case KP_T_NONE:
        return "none";
    case KP_T_BOOL:
        return "boolean";
    case KP_T_INT:
        return "integer";
    case KP_T_INT64:
        return "8-byte integer";
    case KP_T_CURRENCY:
        return "currency";
    case KP_T_REAL:
    case KP_T_REAL_ALT:
        return "real";
    case KP_T_HANDLE_IN:
        return "handle";
    case KP_T_HANDLE_OUT:
        return "handle result";
    case KP_T_STRING:
        return "string";
    case KP_T_STRING_RESULT:
        return "string buffer";
    case KP_T_DATE:
        return "date";
    case KP_T_TIME:
        return "time";
    case KP_T_DATETIME:
        return "date-time";
    case KP_T_DURATION:
        return "duration";
    case KP_T_BUFFER:
        return "buffer";
    case KP_T_ANY:
        return "any";
    case KP_T_WINDOW:
        return "window";
    case KP_T_IMAGE:
        return "image";
    case KP_T_CONTROL:
        return "control";
    case KP_T_PROCEDURE:
        return "procedure";
    case KP_T_RAW_STRING:
        return "raw string";
    case KP_T_RAW_DATA:
        return "raw data";
    case KP_T_STORABLE:
        return "storable value";
    default:
        return "unknown";
    }
}

// ------------------------------------------------------------------------
// Buffers and variants
// ------------------------------------------------------------------------

namespace {
char16_t* make(kp_allocator* alloc, const void* data, std::size_t bytes, uint32_t kind, uint32_t length) {
    if (bytes == 0) return nullptr;
    char16_t* p = nullptr;
    if (alloc->ops->create(alloc, static_cast<uint32_t>(bytes), &p) != 0 || !p) return nullptr;
    std::memcpy(p, data, bytes);
    kp_string_header* h = kp_string_header_of(p);
    h->flags = kind << 1;
    h->refcount = 1;
    h->length = length;
    std::memset(reinterpret_cast<char*>(p) + bytes, 0, 2);
    return p;
}

bool is_binary(const char16_t* p) {
    return p && ((kp_string_header_of(p)->flags >> 1) & 7u) == 1;
}

Value value_of_buffer(const char16_t* p, bool want_buffer) {
    if (!p) return want_buffer ? Value::buffer({}) : Value::string(u"");
    const kp_string_header* h = kp_string_header_of(p);
    if (is_binary(p)) {
        auto* b = reinterpret_cast<const uint8_t*>(p);
        return Value::buffer(std::vector<uint8_t>(b, b + h->length));
    }
    if (want_buffer) {
        auto* b = reinterpret_cast<const uint8_t*>(p);
        return Value::buffer(std::vector<uint8_t>(b, b + static_cast<std::size_t>(h->length) * 2));
    }
    return Value::string(std::u16string(p, h->length));
}

bool buffer_type(uint16_t t) {
    t &= 0xFF;
    return t == KP_T_STRING || t == KP_T_STRING_RESULT || t == KP_T_BUFFER || t == KP_T_RAW_STRING ||
           t == KP_T_RAW_DATA;
}

void host_variant_destroy(kp_variant* v) {
    if (buffer_type(v->type)) release_buffer(v->value.str);
    std::memset(&v->value, 0, sizeof v->value);
}
int32_t host_variant_copy(kp_variant* dst, const kp_variant* src) {
    dst->value = src->value;
    if (buffer_type(src->type) && src->value.str) kp_string_header_of(src->value.str)->refcount++;
    return 0;
}
const kp_variant_ops kHostVariantOps = {host_variant_destroy, host_variant_copy};
} // namespace

char16_t* make_text(kp_allocator* alloc, std::u16string_view text) {
    return make(alloc, text.data(), text.size() * 2, 2, static_cast<uint32_t>(text.size()));
}
char16_t* make_binary(kp_allocator* alloc, const std::vector<uint8_t>& bytes) {
    return make(alloc, bytes.data(), bytes.size(), 1, static_cast<uint32_t>(bytes.size()));
}
void release_buffer(char16_t* p) {
    if (!p) return;
    kp_string_header* h = kp_string_header_of(p);
    if (h->refcount <= 1) {
        h->refcount = 0;
        if (h->owner && h->owner->ops && h->owner->ops->free_buffer)
            h->owner->ops->free_buffer(h->owner, p);
        else
            std::free(h);
    } else {
        --h->refcount;
    }
}

Value value_from_result(const void* value, uint32_t type) {
    switch (type & 0xFF) {
    case KP_T_BOOL:
        return Value::boolean(*static_cast<const int32_t*>(value) != 0);
    case KP_T_INT:
        return Value::integer(*static_cast<const int32_t*>(value));
    case KP_T_INT64:
        return Value::int64(*static_cast<const int64_t*>(value));
    case KP_T_CURRENCY: {
        uint8_t cy[10];
        std::memcpy(cy, value, 10);
        return Value::currency(cy);
    }
    case KP_T_REAL:
    case KP_T_REAL_ALT:
        return Value::real(*static_cast<const double*>(value));
    case KP_T_HANDLE_IN:
    case KP_T_HANDLE_OUT:
        return Value::integer(static_cast<int64_t>(*static_cast<const uintptr_t*>(value)));
    case KP_T_STRING:
    case KP_T_STRING_RESULT:
    case KP_T_DATE:
    case KP_T_TIME:
    case KP_T_DATETIME:
        return value_of_buffer(*static_cast<char16_t* const*>(value), false);
    case KP_T_BUFFER:
        return value_of_buffer(*static_cast<char16_t* const*>(value), true);
    case KP_T_DURATION:
        return Value::int64(*static_cast<const int64_t*>(value));
    case KP_T_ANY:
        return value_from_variant(static_cast<const kp_variant*>(value));
    default:
        return Value::none();
    }
}

Value value_from_variant(const kp_variant* v) {
    if (!v) return Value::none();
    const kp_payload& p = v->value;
    switch (v->type & 0xFF) {
    case KP_T_NONE:
        return Value::none();
    case KP_T_STRING:
    case KP_T_STRING_RESULT:
    case KP_T_RAW_STRING:
    case KP_T_RAW_DATA:
        return value_of_buffer(p.str, false);
    case KP_T_BUFFER:
        return value_of_buffer(p.str, true);
    default:
        return value_from_result(&p, v->type & 0xFF);
    }
}

void value_to_variant(kp_allocator* alloc, const Value& value, kp_variant* v) {
    std::memset(v, 0, sizeof *v);
    v->ops = &kHostVariantOps;
    const Value& x = value.kind == Value::Kind::Variable && value.ref ? *value.ref : value;
    switch (x.kind) {
    case Value::Kind::Bool:
        v->type = KP_T_BOOL;
        v->value.i32 = x.b;
        break;
    case Value::Kind::Int:
        if (x.i >= std::numeric_limits<int32_t>::min() && x.i <= std::numeric_limits<int32_t>::max()) {
            v->type = KP_T_INT;
            v->value.i32 = static_cast<int32_t>(x.i);
        } else {
            v->type = KP_T_INT64;
            v->value.i64 = x.i;
        }
        break;
    case Value::Kind::Int64:
        v->type = KP_T_INT64;
        v->value.i64 = x.i;
        break;
    case Value::Kind::Real:
        v->type = KP_T_REAL;
        v->value.real = x.r;
        break;
    case Value::Kind::Currency:
        v->type = KP_T_CURRENCY;
        std::memcpy(v->value.currency, x.cy, 10);
        break;
    case Value::Kind::String:
        v->type = KP_T_STRING_RESULT;
        v->value.str = make_text(alloc, x.s);
        break;
    case Value::Kind::Buffer:
        v->type = KP_T_BUFFER;
        v->value.str = make_binary(alloc, x.bytes);
        break;
    default:
        v->type = KP_T_NONE;
        break;
    }
}

void destroy_variant(kp_variant* v) {
    if (v->ops && v->ops->destroy)
        v->ops->destroy(v);
    else if (buffer_type(v->type))
        release_buffer(v->value.str);
    std::memset(&v->value, 0, sizeof v->value);
    v->type = KP_T_NONE;
}

// ------------------------------------------------------------------------
// Fit and marshalling
// ------------------------------------------------------------------------

namespace {
bool integral_real(double r, double lo, double hi) {
    return std::isfinite(r) && std::trunc(r) == r && r >= lo && r <= hi;
}
bool fits_i32(int64_t i) {
    return i >= std::numeric_limits<int32_t>::min() && i <= std::numeric_limits<int32_t>::max();
}
} // namespace

namespace {
bool by_reference(uint16_t param) {
    uint16_t t = param & 0xFF;
    return (param & KP_PARAM_FLAG_4000) && t != KP_T_ANY && t != KP_T_STORABLE;
}
// The value an unset variable starts with, by the parameter's type.
Value default_value(uint16_t param) {
    switch (param & 0xFF) {
    case KP_T_BOOL:
        return Value::boolean(false);
    case KP_T_REAL:
    case KP_T_REAL_ALT:
        return Value::real(0);
    case KP_T_CURRENCY: {
        const uint8_t zero[10] = {};
        return Value::currency(zero);
    }
    case KP_T_STRING:
    case KP_T_STRING_RESULT:
        return Value::string(u"");
    default:
        return Value::integer(0);
    }
}
} // namespace

int fit_score(const Value& x, uint16_t param, std::string* issue) {
    using K = Value::Kind;
    // A variable given for a by-reference parameter passes its value and
    // receives the one the call leaves.
    if (x.kind == K::Variable && by_reference(param)) {
        if (!x.ref || x.ref->kind == K::None) return 1;
        return fit_score(*x.ref, param & ~KP_PARAM_FLAG_4000, issue);
    }
    const bool convert = (param & KP_PARAM_CONVERT) != 0;
    const bool integer = x.kind == K::Int || x.kind == K::Int64;
    switch (param & 0xFF) {
    case KP_T_BOOL:
        return x.kind == K::Bool ? 2 : integer ? 1 : -1;
    case KP_T_INT:
        if (integer) {
            if (fits_i32(x.i)) return 2;
            if (issue) *issue = "integer " + std::to_string(x.i) + " does not fit a 32-bit integer parameter";
            return -1;
        }
        if (x.kind == K::Real) return integral_real(x.r, -2147483648.0, 2147483647.0) ? 1 : -1;
        return x.kind == K::Bool ? 1 : -1;
    case KP_T_INT64:
    case KP_T_DURATION: // signed 64-bit milliseconds, as the duration result
        if (integer) return 2;
        return x.kind == K::Real && integral_real(x.r, -9.2e18, 9.2e18) ? 1 : -1;
    case KP_T_CURRENCY:
        // A flagged (0x4000) monetary parameter takes a variable, which the call may update.
        if ((param & KP_PARAM_FLAG_4000) && x.kind == K::Variable && x.ref)
            return x.ref->kind == K::None || fit_score(*x.ref, param & 0xFF, nullptr) >= 0 ? 2 : -1;
        return x.kind == K::Currency ? 2 : (integer || x.kind == K::Real) ? 1 : -1;
    case KP_T_REAL:
    case KP_T_REAL_ALT:
        return x.kind == K::Real ? 2 : integer ? 1 : -1;
    case KP_T_HANDLE_IN:
    case KP_T_HANDLE_OUT:
    case KP_T_WINDOW:
    case KP_T_IMAGE:
    case KP_T_CONTROL:
        return integer ? 1 : -1;
    case KP_T_STRING:
    case KP_T_STRING_RESULT:
    case KP_T_DATE:
    case KP_T_TIME:
    case KP_T_DATETIME:
        if (x.kind == K::String) return 2;
        return convert && (integer || x.kind == K::Real || x.kind == K::Bool) ? 1 : -1;
    case KP_T_BUFFER:
        return x.kind == K::Buffer ? 2 : -1;
    case KP_T_RAW_STRING:
    case KP_T_RAW_DATA:
        return (x.kind == K::String || x.kind == K::Buffer) ? 2 : -1;
    case KP_T_ANY:
    case KP_T_STORABLE:
        if (x.kind == K::Variable) return 2;
        return (x.kind == K::None || x.kind == K::Procedure) ? -1 : 1;
    case KP_T_PROCEDURE:
        return x.kind == K::Procedure ? 2 : -1;
    default:
        return -1;
    }
}

namespace {
std::u16string text_of(const Value& x) {
    char buf[64];
    switch (x.kind) {
    case Value::Kind::Int:
    case Value::Kind::Int64:
        std::snprintf(buf, sizeof buf, "%lld", static_cast<long long>(x.i));
        break;
    case Value::Kind::Real:
        std::snprintf(buf, sizeof buf, "%.17g", x.r);
        break;
    case Value::Kind::Bool:
        std::snprintf(buf, sizeof buf, "%d", x.b ? 1 : 0);
        break;
    default:
        return x.s;
    }
    return utf16(buf);
}
} // namespace

Marshalled::Slot& Marshalled::next_slot() {
    if (slot_count_ < kInlineSlots) {
        Slot* s = inline_slot(slot_count_);
        if (slot_count_ < inline_built_) {
            *s = Slot();
        } else {
            new (s) Slot();
            ++inline_built_;
        }
        return *s;
    }
    const std::size_t k = slot_count_ - kInlineSlots;
    if (k < more_slots_.size())
        *more_slots_[k] = Slot();
    else
        more_slots_.push_back(std::make_unique<Slot>());
    return *more_slots_[k];
}

void Marshalled::push_arg(void* arg) {
    if (argc_ < kInlineArgs) {
        inline_argv_[argc_] = arg;
    } else {
        if (argc_ == kInlineArgs) more_argv_.assign(inline_argv_, inline_argv_ + kInlineArgs);
        more_argv_.push_back(arg);
    }
    ++argc_;
}

void Marshalled::pop_arg() {
    if (argc_ > kInlineArgs) more_argv_.pop_back();
    --argc_;
}

bool Marshalled::add(const Value& x, uint16_t param, std::string* issue) {
    using K = Value::Kind;
    if (x.kind == K::Variable && by_reference(param)) {
        bool set = x.ref && x.ref->kind != K::None;
        if (!add(set ? *x.ref : default_value(param), param, issue)) return false;
        slot(slot_count_ - 1).by_reference = true;
        return true;
    }
    // A currency variable: its value is marshalled first, in the slot this
    // argument then takes over.
    uint8_t referenced_currency[10] = {};
    if ((param & 0xFF) == KP_T_CURRENCY && x.kind == K::Variable && x.ref && x.ref->kind != K::None) {
        if (!add(*x.ref, param & 0xFF, issue)) return false;
        std::memcpy(referenced_currency, slot(slot_count_ - 1).u.currency, 10);
        pop_slot();
        pop_arg();
    }
    Slot* slot = &next_slot();
    slot->type = param;
    void* arg = &slot->u;
    switch (param & 0xFF) {
    case KP_T_CURRENCY:
        if (x.kind == K::Variable && x.ref)
            std::memcpy(slot->u.currency, referenced_currency, 10);
        else if (!fill_scalar(*slot, x, issue))
            return false;
        break;
    case KP_T_STRING:
    case KP_T_STRING_RESULT:
    case KP_T_DATE:
    case KP_T_TIME:
    case KP_T_DATETIME: {
        std::u16string t = text_of(x);
        if (t.size() >= KP_STRING_MAX_CHARS) {
            *issue = "string too long";
            return false;
        }
        slot->u.str = make_text(alloc_, t);
        if (!t.empty() && !slot->u.str) {
            *issue = "out of memory";
            return false;
        }
        break;
    }
    case KP_T_BUFFER:
    case KP_T_RAW_STRING:
    case KP_T_RAW_DATA:
        slot->u.str = x.kind == K::Buffer ? make_binary(alloc_, x.bytes) : make_text(alloc_, x.s);
        break;
    case KP_T_ANY:
    case KP_T_STORABLE:
        value_to_variant(alloc_, x, &slot->variant);
        arg = &slot->variant;
        break;
    case KP_T_PROCEDURE:
        slot->procedure = std::make_unique<kp_procedure>();
        slot->procedure->fn = x.proc;
        slot->u.proc = slot->procedure.get();
        break;
    default:
        if (!fill_scalar(*slot, x, issue)) return false;
        break;
    }
    push(arg);
    return true;
}

bool Marshalled::fill_scalar(Slot& slot, const Value& x, std::string* issue) {
    using K = Value::Kind;
    switch (slot.type & 0xFF) {
    case KP_T_BOOL:
        slot.u.i32 = x.kind == K::Bool ? x.b : x.i != 0;
        return true;
    case KP_T_INT:
        if (x.kind == K::Real)
            slot.u.i32 = static_cast<int32_t>(x.r);
        else if (x.kind == K::Bool)
            slot.u.i32 = x.b;
        else if (fits_i32(x.i))
            slot.u.i32 = static_cast<int32_t>(x.i);
        else {
            *issue = "integer " + std::to_string(x.i) + " does not fit a 32-bit integer parameter";
            return false;
        }
        return true;
    case KP_T_INT64:
    case KP_T_DURATION:
        slot.u.i64 = x.kind == K::Real ? static_cast<int64_t>(x.r) : x.i;
        return true;
    case KP_T_CURRENCY: {
        if (x.kind == K::Currency) {
            std::memcpy(slot.u.currency, x.cy, 10);
            return true;
        }
        double millionths = x.kind == K::Real ? std::round(x.r * 1e6) : static_cast<double>(x.i) * 1e6;
        if (!std::isfinite(millionths) || std::fabs(millionths) > 6.0e23) {
            *issue = "value out of the currency range";
            return false;
        }
        if (x.kind == K::Real)
            currency_from_millionths(millionths, slot.u.currency);
        else
            currency_from_integer(x.i, 1000000, slot.u.currency);
        return true;
    }
    case KP_T_REAL:
    case KP_T_REAL_ALT:
        slot.u.real = x.kind == K::Real ? x.r : static_cast<double>(x.i);
        return true;
    case KP_T_HANDLE_IN:
    case KP_T_HANDLE_OUT:
    case KP_T_WINDOW:
    case KP_T_IMAGE:
    case KP_T_CONTROL:
        slot.u.handle = static_cast<uintptr_t>(x.i);
        return true;
    default:
        *issue = "unsupported parameter type";
        return false;
    }
}

void Marshalled::read_back(std::vector<Value>& args) {
    for (std::size_t k = 0; k < slot_count_ && k < args.size(); ++k) {
        Slot& s = slot(k);
        uint16_t t = s.type & 0xFF;
        if ((t == KP_T_ANY || t == KP_T_STORABLE) && args[k].kind == Value::Kind::Variable && args[k].ref)
            *args[k].ref = value_from_variant(&s.variant);
        else if (s.by_reference && args[k].kind == Value::Kind::Variable && args[k].ref)
            *args[k].ref = value_from_result(&s.u, t);
    }
}

Marshalled::~Marshalled() {
    for (std::size_t k = 0; k < slot_count_; ++k) {
        Slot* s = &slot(k);
        switch (s->type & 0xFF) {
        case KP_T_STRING:
        case KP_T_STRING_RESULT:
        case KP_T_DATE:
        case KP_T_TIME:
        case KP_T_DATETIME:
        case KP_T_BUFFER:
        case KP_T_RAW_STRING:
        case KP_T_RAW_DATA:
            release_buffer(s->u.str);
            break;
        case KP_T_ANY:
        case KP_T_STORABLE:
            destroy_variant(&s->variant);
            break;
        default:
            break;
        }
    }
    for (std::size_t k = 0; k < inline_built_; ++k)
        inline_slot(k)->~Slot();
}

int32_t call_host_procedure(kp_allocator* alloc, kp_procedure* proc, kp_variant* args, int32_t argc,
                            kp_variant* result) {
    if (!proc || !proc->fn || !*proc->fn) return 1;
    std::vector<Value> values;
    for (int32_t k = 0; k < argc; ++k)
        values.push_back(value_from_variant(&args[k]));
    Value r = (*proc->fn)(values);
    if (result) {
        destroy_variant(result);
        value_to_variant(alloc, r, result);
    }
    return 0;
}

} // namespace kp::host
