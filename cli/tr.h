// tr.h - kp120's own words in the interface language (--lang fr or en).
#pragma once

#include "host.h"

namespace kp::cli {

// `fr` when `language` is 0 (French), else `en`.
inline const char* tr(int language, const char* en, const char* fr) {
    return language == 0 ? fr : en;
}

inline const char* tr(const kp::host::Host& host, const char* en, const char* fr) {
    return tr(host.language(), en, fr);
}

} // namespace kp::cli
