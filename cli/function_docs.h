// function_docs.h - the reference of the provided functions, generated from
// src/component/tables/functions_doc.tbl (tools/gen_tables.py --docs).
#pragma once

#include <span>

namespace kp::cli {

struct FunctionDoc {
    const char* english; // the function's English name, as in the function table
    const char* family;  // "Dates and times", ...
    const char* params;  // parameter names, comma-separated, in the order of the longest overload
    const char* purpose; // one line
    const char* failure; // the value returned on failure ("" for none)
    const char* errors;  // error identifiers it may record, space-separated
};

std::span<const FunctionDoc> function_docs();

} // namespace kp::cli
