// locale.h - the "C" locale for the calling thread, for the length of a scope.
//
// The C library classifies bytes by the thread's locale; hosts often run in
// a UTF-8 locale, where a byte of 0x80 and above is not a character on its
// own.  Code that treats text as single bytes (code page 1252) runs inside a
// CLocaleScope so that its results never depend on the process's locale.
#pragma once

#include <locale.h>

namespace kp::platform {

class CLocaleScope {
  public:
    CLocaleScope();
    ~CLocaleScope();
    CLocaleScope(const CLocaleScope&) = delete;
    CLocaleScope& operator=(const CLocaleScope&) = delete;

  private:
    locale_t c_ = static_cast<locale_t>(0);
    locale_t previous_ = static_cast<locale_t>(0);
};

} // namespace kp::platform
