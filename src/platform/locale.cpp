// locale.cpp - thread-local switch to the "C" locale.
#include "platform/locale.h"

namespace kp::platform {

CLocaleScope::CLocaleScope() {
    c_ = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
    if (c_) previous_ = uselocale(c_);
}

CLocaleScope::~CLocaleScope() {
    if (!c_) return;
    uselocale(previous_);
    freelocale(c_);
}

} // namespace kp::platform
