// directory.h - directories of the device: reading them, searching them
// with wildcards (FindFirstFileW / FindNextFileW), making and removing
// whole trees, and their total size.
//
// Entries come in byte order of their host names, "." and ".." never among
// them.  A search pattern is a device name whose last component may hold
// "*" and "?" (platform/wildcard.h); the directory part may not.
//
// Trees are handled without following symbolic links: a link inside a tree
// being removed is removed itself, never what it points at, and sizes count
// the link, not its target, so that nothing outside the device is touched
// or counted and a link loop ends nothing but the link.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/files.h"
#include "platform/paths.h"

namespace kp::platform {

struct DirectoryEntry {
    std::u16string name;
    bool directory = false; // a folder, or a link to one inside the root
    bool link = false;      // a symbolic link (walks do not enter it)
};

// One directory read at once.
class DirectoryReader {
  public:
    DirectoryReader();
    ~DirectoryReader();
    DirectoryReader(const DirectoryReader&) = delete;
    DirectoryReader& operator=(const DirectoryReader&) = delete;

    // Reads the device directory `name`.  Fails with 3 (missing), 267 (not
    // a directory), 5 (unreadable) or the name's own error.
    bool open(std::u16string_view name);
    const std::vector<DirectoryEntry>& entries() const { return entries_; }
    // Attributes, size and times of entry `i` (false when it went away).
    bool info(std::size_t i, FileInfo& out) const;
    // The directory's identity on the host, to tell a directory met twice
    // (through a link) from a new one.
    uint64_t device_id() const { return dev_; }
    uint64_t inode() const { return ino_; }

  private:
    int fd_ = -1;
    SharedFd root_;
    std::string rel_; // the directory relative to the device root
    uint64_t dev_ = 0, ino_ = 0;
    std::vector<DirectoryEntry> entries_;
    std::vector<std::string> host_names_;
};

// FindFirstFileW / FindNextFileW over a pattern.
class FileSearch {
  public:
    FileSearch();
    ~FileSearch();
    FileSearch(const FileSearch&) = delete;
    FileSearch& operator=(const FileSearch&) = delete;

    // The first entry matching `pattern` ("\dir\*.txt"); false with 2 when
    // nothing matches, 3 when the directory is missing, 123 for a wildcard
    // in the directory part.
    bool first(std::u16string_view pattern, FileInfo& out);
    // The next match; false with 18 at the end.
    bool next(FileInfo& out);
    void close();
    bool active() const { return reader_ != nullptr; }

  private:
    bool advance(FileInfo& out);
    std::unique_ptr<DirectoryReader> reader_;
    std::u16string mask_;
    std::size_t at_ = 0;
};

// Splits a device name at its last separator: the directory with its
// trailing separator ("\d\"), and the last component ("*.txt").
void split_device_name(std::u16string_view name, std::u16string_view& directory, std::u16string_view& last);

// Creates the directory and every missing level above it; true when it
// exists afterwards.  Fails with 183 when a file stands in the way.
bool create_directory_tree(std::u16string_view name);
// Removes the directory and everything under it (read-only files too).
// The device root is refused with 5.  On failure the tree may be partly
// removed; the first failure's code is the last error.
bool remove_directory_tree(std::u16string_view name);
// Total size in bytes of the files under a directory, recursively.
bool directory_size(std::u16string_view name, uint64_t& total);

} // namespace kp::platform
