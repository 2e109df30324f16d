// extents.h - the data extents of host files: a copy that keeps the holes
// of its source and a comparison that skips the holes both files share.
//
// A hole reads as zeros: a file with a hole and one with zero bytes written
// at the same place have the same content.  A file system that reports no
// holes (lseek without SEEK_DATA) is one data extent.
#pragma once

#include <cstdint>

#include "platform/files.h"

namespace kp::platform {

// Copies the content of the open file `in` into the open, empty file `out`:
// a clone where the file system shares blocks (FICLONE), else the data
// extents of `in` are copied (copy_file_range, else read and write); its
// holes stay holes of `out`, and `out` gets the size of `in`.
// A file that is not regular or reads a size of 0 (those of /proc) is read
// to its end.  False with the last error set.
bool copy_file_extents(int in, int out);

// Compares the contents of two open files: 0 equal, 1 different, -1 when a
// read fails (last error set).  Files of different sizes differ; ranges that
// are holes in both are not read; a data range facing a hole is compared
// with zeros.
int32_t compare_descriptors(int a, int b);
// The same over two handles of create_file.
int32_t compare_file_contents(FileHandle a, FileHandle b);

} // namespace kp::platform
