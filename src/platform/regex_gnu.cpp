// regex_gnu.cpp - platform::Regex over glibc's GNU interface (re_compile_pattern,
// re_match, re_registers).
#include "platform/regex.h"

#include <regex.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "platform/locale.h"

namespace kp::platform {

namespace {
// re_syntax_options is the process's: the compile that sets it holds this.
std::mutex& syntax_lock() {
    static std::mutex m;
    return m;
}
} // namespace

struct Regex::Engine {
    re_pattern_buffer buffer;
    re_registers registers;
    bool compiled = false;
    bool has_registers = false;

    Engine() {
        std::memset(&buffer, 0, sizeof buffer);
        std::memset(&registers, 0, sizeof registers);
    }
    ~Engine() {
        if (has_registers) {
            std::free(registers.start);
            std::free(registers.end);
        }
        if (compiled) regfree(&buffer);
    }
};

Regex::Regex() : engine_(std::make_unique<Engine>()) {}
Regex::~Regex() = default;

bool Regex::compile(std::string_view pattern, unsigned long syntax) {
    if (engine_->compiled) return false;
    CLocaleScope c_locale;
    const char* problem;
    {
        std::lock_guard<std::mutex> lock(syntax_lock());
        re_set_syntax(syntax);
        problem = re_compile_pattern(pattern.data(), pattern.size(), &engine_->buffer);
    }
    if (problem) {
        // The engine may have allocated part of the buffer before failing.
        regfree(&engine_->buffer);
        std::memset(&engine_->buffer, 0, sizeof engine_->buffer);
        return false;
    }
    engine_->compiled = true;
    return true;
}

long Regex::match(std::string_view subject) {
    if (!engine_->compiled || subject.size() > static_cast<std::size_t>(INT_MAX)) return -1;
    const regoff_t length = static_cast<regoff_t>(subject.size());
    CLocaleScope c_locale;
    engine_->buffer.regs_allocated = engine_->has_registers ? REGS_REALLOCATE : REGS_UNALLOCATED;
    const regoff_t n = re_match(&engine_->buffer, subject.data(), length, 0, &engine_->registers);
    if (engine_->registers.start) engine_->has_registers = true;
    return n < 0 ? -1 : static_cast<long>(n);
}

bool Regex::group(std::size_t i, std::size_t* start, std::size_t* end) const {
    const re_registers& r = engine_->registers;
    if (!engine_->has_registers || i >= r.num_regs || r.start[i] < 0 || r.end[i] < r.start[i]) return false;
    if (start) *start = static_cast<std::size_t>(r.start[i]);
    if (end) *end = static_cast<std::size_t>(r.end[i]);
    return true;
}

} // namespace kp::platform
