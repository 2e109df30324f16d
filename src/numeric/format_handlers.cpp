// format_handlers.cpp - the handlers of NumToString, Min and Max.
#include <cstddef>

#include "component/bind.h"
#include "numeric/format.h"

namespace kp::handlers {

KP_BIND(NumToString_1, [](kp_variant* value, std::u16string_view format, CXError& e) {
    return numeric::num_to_string(value, format, e);
})

namespace {
// The VM passes as many reals as the program gives (two to ten); the slots
// past them are null and take no part.
template <bool Min> int32_t extreme(kp_call_frame* frame, kp_call_context* context, void** args) {
    Call call(frame, context, args);
    double values[10];
    std::size_t n = 0;
    for (int i = 0; i < 10 && args && args[i]; ++i)
        values[n++] = call.real(i);
    const std::span<const double> given(values, n);
    call.ret_real(Min ? numeric::min_of(given) : numeric::max_of(given));
    return 0;
}
} // namespace

KP_HANDLER(Max_1) {
    return extreme<false>(frame, context, args);
}
KP_HANDLER(Min_1) {
    return extreme<true>(frame, context, args);
}

} // namespace kp::handlers
