// regex_handlers.cpp - handler of MatchRegularExpression.
#include "component/bind.h"
#include "component/call.h"
#include "component/variant.h"
#include "transforms/regex.h"

namespace kp::handlers {

// (string, pattern, up to eight variables by reference) -> boolean
KP_HANDLER(MatchRegularExpression_1) {
    (void)context;
    Call call(frame, context, args);
    std::size_t variables = 0;
    while (variables < 8 && args && args[2 + variables])
        ++variables;
    auto assign = [&](std::size_t index, std::u16string_view text) {
        kp_variant* v = call.variant(static_cast<int>(index + 1));
        return !v || variant::set_string(v, text) == 0;
    };
    call.ret_bool(
        transforms::match_regular_expression(call.str(0), call.str(1), variables, assign, call.error()));
    return 0;
}

} // namespace kp::handlers
