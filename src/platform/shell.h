// shell.h - documents opened with the application the desktop associates
// with them.
//
// Associations are those of the freedesktop.org shared MIME-info database
// and desktop entries, read through GIO: the document's content type is
// guessed (name and content), the default application of that type is
// taken, and its desktop entry is launched on the document.  The verb "open" (and no
// verb) is the entry's main command; any other verb is the entry's action
// of that name (compared without regard to ASCII case).  The program starts
// in the entry's working directory ("Path"), or else in `directory`.
#pragma once

#include <cstdint>
#include <string>

namespace kp::platform {

// Results, as the device's shell reports them: above 32 the document was
// opened; 2 the document is missing; 3 its directory is missing; 5 the
// application could not be started; 31 no application is associated with
// the document's type, or the application has no such verb.
constexpr int32_t kShellOpened = 42;

// `verb` null: the default verb.
int32_t shell_open(const std::string& document, const std::string& directory, const char* verb);

} // namespace kp::platform
