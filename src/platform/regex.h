// regex.h - the C library's GNU regex engine over single-byte text.
//
// One compiled pattern and the registers of its last match.  Patterns and
// subjects are bytes, one a character: the engine runs under the "C"
// locale of the calling thread.  The engine's syntax setting is one word
// for the whole process; compiles are serialised so that each runs with the
// syntax it asked for.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

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

// The same engine in a child process of its own, for patterns whose compile
// or match might run away: the child compiles the pattern and then matches
// the one subject it is sent, and each step that has not answered within
// `limit` stops the child (SIGKILL) and fails.  The child dies with its
// caller's process and never outlives this object.
class IsolatedRegex {
  public:
    explicit IsolatedRegex(std::chrono::milliseconds limit);
    ~IsolatedRegex();
    IsolatedRegex(const IsolatedRegex&) = delete;
    IsolatedRegex& operator=(const IsolatedRegex&) = delete;

    // False when the pattern does not compile or the compile overran, and
    // when no child could be started (started() then says so).
    bool compile(std::string_view pattern, unsigned long syntax);
    bool started() const { return started_; }
    // As Regex::match; -1 also when the match overran.  One match a compile.
    long match(std::string_view subject);
    // True when the last step got no answer in time (or the child died).
    bool overran() const { return overran_; }
    bool group(std::size_t i, std::size_t* start, std::size_t* end) const;

  private:
    void stop();

    std::chrono::milliseconds limit_;
    int channel_ = -1; // the parent's end of the socket pair
    int child_ = -1;   // the child's process id
    bool started_ = false;
    bool compiled_ = false;
    bool overran_ = false;
    std::vector<std::pair<long, long>> groups_;
};

} // namespace kp::platform
