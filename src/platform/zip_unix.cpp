// zip_unix.cpp - ZIP archive files on the host, through libzip.
#include <fcntl.h>
#include <unistd.h>
#include <zip.h>

#include <cerrno>

#include "platform/zip.h"

namespace kp::platform {

namespace {
// An archive without entries is its end-of-central-directory record alone.
// libzip never writes an archive without entries (closing one removes the
// file), so the record is written here and libzip reads it back.
constexpr unsigned char kEmptyArchive[22] = {'P', 'K', 5, 6};
} // namespace

int zip_create_empty(const std::string& host_path) {
    const int fd = ::open(host_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) return errno == ENOENT ? ZIP_ER_NOENT : ZIP_ER_OPEN;
    ssize_t done = 0;
    while (done < static_cast<ssize_t>(sizeof kEmptyArchive)) {
        const ssize_t n = ::write(fd, kEmptyArchive + done, sizeof kEmptyArchive - static_cast<size_t>(done));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            ::close(fd);
            return ZIP_ER_WRITE;
        }
        done += n;
    }
    if (::close(fd) != 0) return ZIP_ER_CLOSE;
    return zip_check_readable(host_path);
}

int zip_check_readable(const std::string& host_path) {
    int error = ZIP_ER_OK;
    zip_t* archive = zip_open(host_path.c_str(), ZIP_RDONLY | ZIP_CHECKCONS, &error);
    if (!archive) return error ? error : ZIP_ER_OPEN;
    zip_discard(archive);
    return ZIP_ER_OK;
}

} // namespace kp::platform
