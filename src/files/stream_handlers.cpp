// stream_handlers.cpp - handlers of the file stream functions.
#include <algorithm>

#include "component/bind.h"
#include "component/call.h"
#include "component/variant.h"
#include "files/streams.h"

namespace kp::handlers {

namespace {
// Addresses travel as 32-bit integers.
uintptr_t address_of(int32_t v) {
    return static_cast<uintptr_t>(static_cast<uint32_t>(v));
}
} // namespace

KP_BIND(fOpen_1, files::f_open)
KP_BIND(fOpen_2,
        [](std::u16string_view name, CXError& e) { return files::f_open(name, files::kFoReadWrite, e); })
KP_BIND(fCreate_1, [](std::u16string_view name, CXError& e) { return files::f_create(name, 0, e); })
KP_BIND(fCreate_2, files::f_create)
KP_BIND(fClose_1, files::f_close)

// The bytes read as a buffer; nothing read gives no value.
KP_BIND(fRead_1, [](int32_t handle, int32_t count, CXError& e) {
    std::vector<uint8_t> bytes = files::f_read(handle, count, e);
    return bytes.empty() ? variant::Value() : bind::any_buffer(bytes);
})
KP_BIND(fRead_2, [](int32_t handle, int32_t count, int32_t address, CXError& e) {
    return files::f_read_to(handle, count, address_of(address), e);
})

KP_BIND(fWrite_1, [](int32_t handle, std::span<const uint8_t> bytes, CXError& e) {
    return files::f_write(handle, bytes, -1, e);
})
KP_BIND(fWrite_2, files::f_write)
KP_BIND(fWrite_3, [](int32_t handle, int32_t address, int32_t length, CXError& e) {
    return files::f_write_from(handle, address_of(address), length, e);
})

KP_BIND(fReadLine_1,
        [](int32_t handle, CXError& e) { return bind::any_string(files::f_read_line(handle, e)); })

// (handle, pattern, up to eight variables by reference) -> boolean: a
// variable count, hand-written.
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

// A text is written in the file's encoding, a buffer's bytes unchanged.
KP_BIND(fWriteLine_1, [](int32_t handle, bind::StringOrBuffer value, CXError& e) {
    return value.binary() ? files::f_write_line_bytes(handle, value.bytes(), e)
                          : files::f_write_line(handle, value.text(), e);
})
KP_BIND(fWriteLine_2, [](int32_t handle, int32_t address, int32_t length, CXError& e) {
    return files::f_write_line_from(handle, address_of(address), length, e);
})
KP_BIND(fWriteLine_3, [](int32_t handle, std::span<const uint8_t> bytes, int32_t length, CXError& e) {
    std::size_t n = length <= 0 ? 0 : std::min<std::size_t>(bytes.size(), static_cast<std::size_t>(length));
    return files::f_write_line_raw(handle, bytes.first(n), e);
})

KP_BIND(fSeek_1, files::f_seek)
KP_BIND(fChangeSize_1, files::f_change_size)

} // namespace kp::handlers
