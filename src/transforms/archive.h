// archive.h - the two archive functions of the old archive family that this
// edition provides: _zipCreate_old and _zipOpen_old.
//
// An archive is known to the program by a name of its choosing, bound to a
// ZIP file by one of the two functions; the binding (name -> device file
// name) is kept for the life of the component, and a later call with the
// same name binds it again.  Names are compared exactly.
//   - _zipCreate_old(archive, file) writes an empty ZIP archive to the file,
//     replacing a file of that name, and checks that it reads back.
//   - _zipOpen_old(archive, file) checks that the file is a readable ZIP
//     archive (libzip's consistency checks included); the file is not
//     changed.
// Both answer 0 on success or the libzip error number (9 no such file, 11
// cannot open, 19 not a ZIP archive, 21 inconsistent archive ...).  Only a
// bad file name records an error as well, and answers 18 (invalid
// argument): an empty name records 80059, a name that is not a full device
// path 80600, a name the device refuses its system error.  A failing call
// leaves the binding of the name as it was.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "component/error.h"

namespace kp::transforms {

int32_t zip_create_old(std::u16string_view archive, std::u16string_view file, CXError& e);
int32_t zip_open_old(std::u16string_view archive, std::u16string_view file, CXError& e);
// The device file bound to an archive name, or null.
const std::u16string* zip_archive_file(std::u16string_view archive);

} // namespace kp::transforms
