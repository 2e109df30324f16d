// regex.h - the C library's GNU regex engine over single-byte text.
//
// One compiled pattern and the registers of its last match.  Patterns and
// subjects are bytes, one a character: the engine runs under the "C"
// locale of the calling thread.  The engine's syntax setting is one word
// for the whole process; compiles are serialised so that each runs with the
// syntax it asked for.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

namespace kp::platform {

class Regex {
  public:
    Regex();
    ~Regex();
    Regex(const Regex&) = delete;
    Regex& operator=(const Regex&) = delete;

    // Compiles `pattern` with the GNU syntax bits `syntax`; false when it
    // does not compile (or a pattern is compiled already).
    bool compile(std::string_view pattern, unsigned long syntax);
    // Length of the match of the compiled pattern at the start of
    // `subject`, or -1 when there is none (or nothing is compiled).
    long match(std::string_view subject);
    // Start and end of group i of the last match; false when the group took
    // no part in it or does not exist.
    bool group(std::size_t i, std::size_t* start, std::size_t* end) const;

  private:
    struct Engine;
    std::unique_ptr<Engine> engine_;
};

} // namespace kp::platform
