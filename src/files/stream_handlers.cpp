// stream_handlers.cpp - handlers of the file stream functions.
#include <algorithm>

#include "component/call.h"
#include "component/strings.h"
#include "component/variant.h"
#include "files/streams.h"

namespace kp::handlers {

namespace {
// Addresses travel as 32-bit integers.
uintptr_t address_of(int32_t v) {
    return static_cast<uintptr_t>(static_cast<uint32_t>(v));
}

void ret_string_variant(Call& call, std::u16string_view s) {
    kp_variant v;
    variant::init(&v);
    variant::set_string(&v, s);
    call.ret_variant(&v);
    variant::destroy(&v);
}
} // namespace

KP_HANDLER(fOpen_1) {
    Call call(frame, context, args);
    call.ret_int(files::f_open(call.str(0), call.i32(1), call.error()));
    return 0;
}

KP_HANDLER(fOpen_2) {
    Call call(frame, context, args);
    call.ret_int(files::f_open(call.str(0), files::kFoReadWrite, call.error()));
    return 0;
}

KP_HANDLER(fCreate_1) {
    Call call(frame, context, args);
    call.ret_int(files::f_create(call.str(0), 0, call.error()));
    return 0;
}

KP_HANDLER(fCreate_2) {
    Call call(frame, context, args);
    call.ret_int(files::f_create(call.str(0), call.i32(1), call.error()));
    return 0;
}

KP_HANDLER(fClose_1) {
    Call call(frame, context, args);
    call.ret_int(files::f_close(call.i32(0), call.error()));
    return 0;
}

KP_HANDLER(fRead_1) {
    Call call(frame, context, args);
    std::vector<uint8_t> bytes = files::f_read(call.i32(0), call.i32(1), call.error());
    kp_variant v;
    variant::init(&v);
    if (!bytes.empty()) variant::set_buffer(&v, bytes);
    call.ret_variant(&v);
    variant::destroy(&v);
    return 0;
}

KP_HANDLER(fRead_2) {
    Call call(frame, context, args);
    call.ret_int(files::f_read_to(call.i32(0), call.i32(1), address_of(call.i32(2)), call.error()));
    return 0;
}

KP_HANDLER(fWrite_1) {
    Call call(frame, context, args);
    call.ret_int(files::f_write(call.i32(0), call.raw(1), -1, call.error()));
    return 0;
}

KP_HANDLER(fWrite_2) {
    Call call(frame, context, args);
    call.ret_int(files::f_write(call.i32(0), call.raw(1), call.i32(2), call.error()));
    return 0;
}

KP_HANDLER(fWrite_3) {
    Call call(frame, context, args);
    call.ret_int(files::f_write_from(call.i32(0), address_of(call.i32(1)), call.i32(2), call.error()));
    return 0;
}

KP_HANDLER(fReadLine_1) {
    Call call(frame, context, args);
    ret_string_variant(call, files::f_read_line(call.i32(0), call.error()));
    return 0;
}

// (handle, pattern, up to eight variables by reference) -> boolean
KP_HANDLER(fReadLine_2) {
    Call call(frame, context, args);
    std::size_t variables = 0;
    while (variables < 8 && args && args[2 + variables])
        ++variables;
    auto assign = [&](std::size_t index, std::u16string_view text) {
        kp_variant* v = call.variant(static_cast<int>(index + 2));
        return !v || variant::set_string(v, text) == 0;
    };
    call.ret_bool(files::f_read_line_match(call.i32(0), call.str(1), variables, assign, call.error()));
    return 0;
}

KP_HANDLER(fWriteLine_1) {
    Call call(frame, context, args);
    char16_t* value = call.buffer(1);
    bool ok = str::is_binary(value) ? files::f_write_line_bytes(call.i32(0), str::bytes(value), call.error())
                                    : files::f_write_line(call.i32(0), str::view(value), call.error());
    call.ret_bool(ok);
    return 0;
}

KP_HANDLER(fWriteLine_2) {
    Call call(frame, context, args);
    call.ret_bool(files::f_write_line_from(call.i32(0), address_of(call.i32(1)), call.i32(2), call.error()));
    return 0;
}

KP_HANDLER(fWriteLine_3) {
    Call call(frame, context, args);
    std::span<const uint8_t> bytes = call.raw(1);
    int32_t length = call.i32(2);
    std::size_t n = length <= 0 ? 0 : std::min<std::size_t>(bytes.size(), static_cast<std::size_t>(length));
    call.ret_bool(files::f_write_line_raw(call.i32(0), bytes.first(n), call.error()));
    return 0;
}

KP_HANDLER(fSeek_1) {
    Call call(frame, context, args);
    call.ret_int64(files::f_seek(call.i32(0), call.i64(1), call.i32(2), call.error()));
    return 0;
}

KP_HANDLER(fChangeSize_1) {
    Call call(frame, context, args);
    call.ret_bool(files::f_change_size(call.i32(0), call.i64(1), call.error()));
    return 0;
}

} // namespace kp::handlers
