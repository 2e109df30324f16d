// error_record.h - an error object over a record of its own, cleared
// (severity 1), for the tests that call the families' functions directly.
#pragma once

#include <cstdint>

#include "component/error.h"

namespace kp::test {

struct Err {
    kp_error_record rec{};
    CXError err{&rec};
    Err() { rec.severity = 1; }
    uint32_t id() const { return rec.id; }
    bool clean() const { return rec.severity == 1 && rec.id == 0; }
};

} // namespace kp::test
