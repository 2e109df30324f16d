// listing.h - walks over directories: fListFile and fListDirectory (with a
// procedure of the program, or as text), and fDir's search from call to call.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "component/error.h"

namespace kp::files {

// What the walk hands the procedure: the directory (with its trailing "\"),
// the entry's name, the entry's running number from 1, and the user value.
// Returns false to stop the walk.
using WalkVisitor = std::function<bool(std::u16string_view directory, std::u16string_view name,
                                       int32_t number, int32_t user)>;
// Asked between entries under frInterruptible: true when Escape was pressed.
using WalkInterrupt = std::function<bool()>;

enum class WalkKind { Files, Directories };

// The procedure forms: the number of entries passed to the visitor.
int32_t walk(std::u16string_view path, WalkKind kind, int32_t user, int32_t options, const WalkVisitor& visit,
             const WalkInterrupt& interrupted, CXError& err);
// The string forms: one entry a line (CR LF between lines), the full device
// name, with frFullInformation followed by a tab and the attribute letters.
std::u16string walk_text(std::u16string_view path, WalkKind kind, int32_t options,
                         const WalkInterrupt& interrupted, CXError& err);

// fDir: (pattern, kind) starts a search and returns the first match; an
// empty pattern returns the next match of the search under way; "" at the end.
std::u16string f_dir(std::u16string_view pattern, int32_t kind, CXError& err);

} // namespace kp::files
