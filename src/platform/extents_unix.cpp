// extents_unix.cpp - data extents over lseek's SEEK_DATA and SEEK_HOLE.
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

#include "platform/extents.h"
#include "platform/win32_error.h"

namespace kp::platform {

namespace {

// Bytes read at a time, per file.
constexpr std::size_t kBlock = 256u << 10;

bool fail_errno() {
    set_last_error_from_errno();
    return false;
}

// Where the next data at or after `offset` begins: `size` when only a hole
// follows; `offset` itself where the file system reports no holes.  -1 on
// an error.
int64_t next_data(int fd, int64_t offset, int64_t size) {
    if (offset >= size) return size;
    const off_t r = lseek(fd, offset, SEEK_DATA);
    if (r >= 0) return std::min<int64_t>(r, size);
    if (errno == ENXIO) return size;
    if (errno == EINVAL || errno == ENOTSUP || errno == EOPNOTSUPP) return offset;
    return -1;
}

// Where the data that begins at `offset` ends (the next hole or `size`).
int64_t next_hole(int fd, int64_t offset, int64_t size) {
    const off_t r = lseek(fd, offset, SEEK_HOLE);
    if (r >= 0) return std::min<int64_t>(r, size);
    if (errno == ENXIO || errno == EINVAL || errno == ENOTSUP || errno == EOPNOTSUPP) return size;
    return -1;
}

// Reads up to `count` bytes at `offset`; fewer only at the end of the file.
bool read_at(int fd, int64_t offset, uint8_t* buf, std::size_t count, std::size_t& done) {
    done = 0;
    while (done < count) {
        const ssize_t n =
            pread(fd, buf + done, count - done, static_cast<off_t>(offset) + static_cast<off_t>(done));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return fail_errno();
        if (n == 0) break;
        done += static_cast<std::size_t>(n);
    }
    return true;
}

bool write_at(int fd, int64_t offset, const uint8_t* buf, std::size_t count) {
    for (std::size_t put = 0; put < count;) {
        const ssize_t w =
            pwrite(fd, buf + put, count - put, static_cast<off_t>(offset) + static_cast<off_t>(put));
        if (w < 0 && errno == EINTR) continue;
        if (w <= 0) return fail_errno();
        put += static_cast<std::size_t>(w);
    }
    return true;
}

bool all_zero(const uint8_t* p, std::size_t n) {
    return n == 0 || (p[0] == 0 && std::memcmp(p, p + 1, n - 1) == 0);
}

// Copies [from, to) of `in` to the same place of `out`.
bool copy_range(int in, int out, int64_t from, int64_t to) {
    loff_t src = from, dst = from;
    while (src < to) {
        const ssize_t n = copy_file_range(in, &src, out, &dst, static_cast<std::size_t>(to - src), 0);
        if (n > 0) continue;
        if (n == 0) return true; // the source ended early
        if (errno == EINTR) continue;
        if (errno == EXDEV || errno == ENOSYS || errno == EINVAL || errno == EOPNOTSUPP || errno == EBADF)
            break;
        return fail_errno();
    }
    if (src >= to) return true;
    // Between file systems that cannot copy on their own: read and write.
    std::unique_ptr<uint8_t[]> buf(new (std::nothrow) uint8_t[kBlock]);
    if (!buf) {
        set_last_error(kErrorNotEnoughMemory);
        return false;
    }
    while (src < to) {
        std::size_t n = 0;
        if (!read_at(in, src, buf.get(), std::min<std::size_t>(kBlock, static_cast<std::size_t>(to - src)),
                     n))
            return false;
        if (n == 0) return true;
        if (!write_at(out, src, buf.get(), n)) return false;
        src += static_cast<loff_t>(n);
    }
    return true;
}

// Copies `in` from its start to its end, whatever its size says.
bool copy_stream(int in, int out) {
    std::unique_ptr<uint8_t[]> buf(new (std::nothrow) uint8_t[kBlock]);
    if (!buf) {
        set_last_error(kErrorNotEnoughMemory);
        return false;
    }
    for (int64_t offset = 0;;) {
        std::size_t n = 0;
        if (!read_at(in, offset, buf.get(), kBlock, n)) return false;
        if (n == 0) return true;
        if (!write_at(out, offset, buf.get(), n)) return false;
        offset += static_cast<int64_t>(n);
    }
}

} // namespace

bool copy_file_extents(int in, int out) {
    struct stat st;
    if (fstat(in, &st) != 0) return fail_errno();
    if (!S_ISREG(st.st_mode) || st.st_size == 0) return copy_stream(in, out);
    const int64_t size = st.st_size;
    // A file system that shares blocks between files (btrfs, XFS) makes the
    // copy at once, holes included; the others refuse and the extents are
    // copied.
    if (ioctl(out, FICLONE, in) == 0) return true;
    posix_fadvise(in, 0, 0, POSIX_FADV_SEQUENTIAL);
    for (int64_t offset = 0; offset < size;) {
        const int64_t data = next_data(in, offset, size);
        if (data < 0) return fail_errno();
        if (data >= size) break;
        int64_t end = next_hole(in, data, size);
        if (end < 0) return fail_errno();
        if (end <= data) end = size; // the file changed meanwhile: the rest as data
        if (!copy_range(in, out, data, end)) return false;
        offset = end;
    }
    // The size, with the holes at the end.
    if (ftruncate(out, static_cast<off_t>(size)) != 0) return fail_errno();
    return true;
}

int32_t compare_descriptors(int a, int b) {
    struct stat sa, sb;
    if (fstat(a, &sa) != 0 || fstat(b, &sb) != 0) {
        set_last_error_from_errno();
        return -1;
    }
    if (sa.st_size != sb.st_size) return 1;
    const int64_t size = sa.st_size;
    std::unique_ptr<uint8_t[]> x(new (std::nothrow) uint8_t[kBlock]);
    std::unique_ptr<uint8_t[]> y(new (std::nothrow) uint8_t[kBlock]);
    if (!x || !y) {
        set_last_error(kErrorNotEnoughMemory);
        return -1;
    }
    posix_fadvise(a, 0, 0, POSIX_FADV_SEQUENTIAL);
    posix_fadvise(b, 0, 0, POSIX_FADV_SEQUENTIAL);
    for (int64_t offset = 0; offset < size;) {
        const int64_t da = next_data(a, offset, size), db = next_data(b, offset, size);
        if (da < 0 || db < 0) {
            set_last_error_from_errno();
            return -1;
        }
        if (da > offset && db > offset) { // a hole in both
            offset = std::min(da, db);
            continue;
        }
        // Up to where either file changes between data and hole.
        const int64_t ea = da == offset ? next_hole(a, offset, size) : da;
        const int64_t eb = db == offset ? next_hole(b, offset, size) : db;
        if (ea < 0 || eb < 0) {
            set_last_error_from_errno();
            return -1;
        }
        int64_t end = std::min(ea, eb);
        if (end <= offset) end = std::min<int64_t>(size, offset + static_cast<int64_t>(kBlock));
        const bool both = da == offset && db == offset;
        const int data_fd = da == offset ? a : b;
        while (offset < end) {
            const std::size_t want = static_cast<std::size_t>(std::min<int64_t>(end - offset, kBlock));
            std::size_t na = 0, nb = 0;
            if (both) {
                if (!read_at(a, offset, x.get(), want, na) || !read_at(b, offset, y.get(), want, nb))
                    return -1;
                if (na != nb || std::memcmp(x.get(), y.get(), na) != 0) return 1;
            } else {
                // Data facing a hole: equal when it is zeros.
                if (!read_at(data_fd, offset, x.get(), want, na)) return -1;
                if (!all_zero(x.get(), na)) return 1;
                nb = na;
            }
            if (na < want) return 0; // both ended here (the files shrank meanwhile)
            offset += static_cast<int64_t>(na);
        }
    }
    return 0;
}

} // namespace kp::platform
