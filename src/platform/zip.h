// zip.h - ZIP archive files, through libzip.  Results are libzip error
// numbers (ZIP_ER_*): 0 for success.
#pragma once

#include <string>

namespace kp::platform {

constexpr int kZipOk = 0;
constexpr int kZipErrOpen = 11;    // the file cannot be opened or created
constexpr int kZipErrInvalid = 18; // an argument is not valid (a bad name)

// Creates an empty archive at `host_path` (replacing a file of that name)
// and reads it back through libzip.
int zip_create_empty(const std::string& host_path);
// Opens an existing archive read-only with libzip's consistency checks.
int zip_check_readable(const std::string& host_path);

} // namespace kp::platform
