// regex.cpp - the glue between the component's strings and GNU regex.
#include "transforms/regex.h"

#include <regex.h>

#include <climits>
#include <cstdlib>
#include <cstring>

#include "platform/codepage.h"
#include "platform/locale.h"

namespace kp::transforms {

struct WholeMatch::Engine {
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

WholeMatch::WholeMatch() : engine_(std::make_unique<Engine>()) {}
WholeMatch::~WholeMatch() = default;

bool WholeMatch::compile(std::u16string_view pattern) {
    if (engine_->compiled) return false;
    std::string bytes = platform::encode_1252(pattern);
    platform::CLocaleScope c_locale;
    re_set_syntax(kRegexSyntax);
    const char* problem = re_compile_pattern(bytes.data(), bytes.size(), &engine_->buffer);
    if (problem) {
        // The engine may have allocated part of the buffer before failing.
        regfree(&engine_->buffer);
        std::memset(&engine_->buffer, 0, sizeof engine_->buffer);
        return false;
    }
    engine_->compiled = true;
    return true;
}

bool WholeMatch::match(std::u16string_view subject) {
    if (!engine_->compiled || subject.size() > static_cast<std::size_t>(INT_MAX)) return false;
    std::string bytes = platform::encode_1252(subject);
    const regoff_t length = static_cast<regoff_t>(bytes.size());
    platform::CLocaleScope c_locale;
    engine_->buffer.regs_allocated = engine_->has_registers ? REGS_REALLOCATE : REGS_UNALLOCATED;
    regoff_t n = re_match(&engine_->buffer, bytes.data(), length, 0, &engine_->registers);
    if (engine_->registers.start) engine_->has_registers = true;
    return n >= 0 && n >= length;
}

bool WholeMatch::group(std::size_t i, std::size_t* start, std::size_t* end) const {
    const re_registers& r = engine_->registers;
    if (!engine_->has_registers || i >= r.num_regs || r.start[i] < 0 || r.end[i] < r.start[i]) return false;
    if (start) *start = static_cast<std::size_t>(r.start[i]);
    if (end) *end = static_cast<std::size_t>(r.end[i]);
    return true;
}

void report_invalid_pattern(CXError& err) {
    err.fail(kErrPatternInvalid);
    err.append_formatted(u"Valeur de retour d'analyse du format : %1!d!", {-1});
}

bool match_regular_expression(std::u16string_view text, std::u16string_view pattern, std::size_t variables,
                              const AssignGroup& assign, CXError& err) {
    WholeMatch m;
    if (!m.compile(pattern)) {
        report_invalid_pattern(err);
        return false;
    }
    if (!m.match(text)) return false;
    if (variables == 0) return true;
    bool ok = true;
    for (std::size_t i = 1; i <= variables; ++i) {
        std::size_t start = 0, end = 0;
        if (!m.group(i, &start, &end) || end > text.size()) {
            err.fail(kErrGroupMissing);
            return false;
        }
        if (assign && !assign(i, text.substr(start, end - start))) ok = false;
    }
    if (m.group(variables + 1, nullptr, nullptr)) {
        err.fail(kErrTooManyGroups);
        return false;
    }
    return ok;
}

} // namespace kp::transforms
