// call.cpp - reading a handler's arguments and handing its result to the VM.
#include "component/call.h"

#include <cstring>

#include "component/runtime.h"

namespace kp {

namespace {
kp_error_record* record_of(kp_call_context* context) {
    if (!context || !context->ops || !context->ops->error) return nullptr;
    return context->ops->error(context);
}
template <typename T> T read(void** args, int i) {
    T v{};
    if (args && args[i]) std::memcpy(&v, args[i], sizeof v);
    return v;
}
} // namespace

Call::Call(kp_call_frame* frame, kp_call_context* context, void** args)
    : frame_(frame), args_(args), error_(record_of(context)) {}

Call::~Call() {
    if (error_.failed()) runtime::note_failure(error_.record());
}

std::u16string_view Call::str(int i) const {
    return str::view(read<char16_t*>(args_, i));
}
char16_t* Call::buffer(int i) const {
    return read<char16_t*>(args_, i);
}
int32_t Call::i32(int i) const {
    return read<int32_t>(args_, i);
}
bool Call::boolean(int i) const {
    return read<int32_t>(args_, i) != 0;
}
int64_t Call::i64(int i) const {
    return read<int64_t>(args_, i);
}
double Call::real(int i) const {
    return read<double>(args_, i);
}
CurrencyBytes Call::currency(int i) const {
    CurrencyBytes c;
    if (args_ && args_[i]) std::memcpy(c.b, args_[i], 10);
    return c;
}
kp_variant* Call::variant(int i) const {
    return args_ ? static_cast<kp_variant*>(args_[i]) : nullptr;
}
std::span<const uint8_t> Call::raw(int i) const {
    return str::bytes(read<char16_t*>(args_, i));
}
kp_procedure* Call::procedure(int i) const {
    return read<kp_procedure*>(args_, i);
}
uintptr_t Call::handle(int i) const {
    return read<uintptr_t>(args_, i);
}

void Call::set(const void* value, uint32_t type) {
    if (!frame_ || !frame_->values || !frame_->values->ops || !frame_->values->ops->set_result) return;
    frame_->values->ops->set_result(frame_->values, frame_->result_handle, value, type);
}

void Call::ret_bool(bool v) {
    int32_t w = v ? 1 : 0;
    set(&w, KP_T_BOOL);
}
void Call::ret_int(int32_t v) {
    set(&v, KP_T_INT);
}
void Call::ret_int64(int64_t v) {
    set(&v, KP_T_INT64);
}
void Call::ret_real(double v) {
    set(&v, KP_T_REAL);
}
void Call::ret_currency(const CurrencyBytes& v) {
    set(v.b, KP_T_CURRENCY);
}
void Call::ret_handle(uintptr_t h) {
    set(&h, KP_T_HANDLE_OUT);
}
void Call::ret_variant(kp_variant* v) {
    set(v, KP_T_ANY);
}

// A string the machinery cannot create (100 out of memory, 108 too long) is
// recorded under its code, which has no definition row and so makes a fatal
// error; the VM then receives the empty string.
void Call::ret_string(std::u16string_view s) {
    str::Ref r;
    int32_t rc = str::create(s, r.out());
    if (rc != str::kOk) error_.set(static_cast<uint32_t>(rc));
    char16_t* p = r.get();
    set(&p, KP_T_STRING_RESULT);
}

void Call::ret_buffer(std::span<const uint8_t> bytes) {
    str::Ref r;
    int32_t rc = str::create_binary(bytes, r.out());
    if (rc != str::kOk) error_.set(static_cast<uint32_t>(rc));
    char16_t* p = r.get();
    set(&p, KP_T_BUFFER);
}

void Call::ret_empty(uint32_t type) {
    switch (type & 0xFF) {
    case KP_T_NONE:
        return;
    case KP_T_STRING:
    case KP_T_STRING_RESULT:
    case KP_T_DATE:
    case KP_T_TIME:
    case KP_T_DATETIME:
        ret_string(u"");
        return;
    case KP_T_BUFFER:
        ret_buffer({});
        return;
    case KP_T_ANY: {
        variant::Value v;
        ret_variant(v.get());
        return;
    }
    case KP_T_CURRENCY:
        ret_currency(CurrencyBytes{});
        return;
    default: {
        // Integers, reals, durations and handles: eight zero bytes read as
        // the type's width.
        const uint64_t zero = 0;
        set(&zero, type & 0xFF);
        return;
    }
    }
}

} // namespace kp
