// trash.h - the user's trash in the freedesktop.org layout (files/ and info/), so
// that a file deleted this way shows in the desktop's trash and can be
// restored from there.
//
// The home trash $XDG_DATA_HOME/Trash (XDG_DATA_HOME defaults to
// ~/.local/share) takes the file when it lies on the same file system;
// otherwise the trash of the file's own file system, $topdir/.Trash-$uid,
// made with mode 0700 when missing.  The file is renamed into the trash's
// "files" directory after its "info" file ("name.trashinfo": the original
// path, percent-encoded, and the deletion date in local time) was created
// exclusively, so that two deletions of the same name never collide.
#pragma once

#include <string_view>

namespace kp::platform {

// Moves the device file or directory `name` to the trash.  Fails with the
// name's error, 5 for the device root, or the mapped code of the host.
bool move_to_trash(std::u16string_view name);

} // namespace kp::platform
