// clipboard_device.cpp - the device's own clipboard: a store file in the
// device root's system directory, "\Windows\clipboard.dat", shared by every
// process that works on the same device root.
//
// An opener holds an exclusive lock on "\Windows\clipboard.lck" from open to
// close (other openers wait a short while, then fail with 5), reads the
// store when it opens and, when it changed anything, writes a new store
// beside the old one and renames it over it when it closes: a reader never
// sees half a store.  A missing or damaged store is an empty clipboard.
//
// Store layout: the 8 bytes "KPCLIP1\n", then one record a format: format
// number (32-bit), encoding (32-bit: 0 the bytes as they are, 1 UTF-16
// units written as WTF-8), byte count (64-bit), the bytes; little-endian.
// Text (format 13) of an even number of bytes is kept as WTF-8 so that the
// store stays readable as text; a lone surrogate survives the round trip.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <map>
#include <mutex>
#include <thread>

#include "platform/clipboard.h"
#include "platform/clipboard_opener.h"
#include "platform/codepage.h"
#include "platform/paths.h"
#include "platform/win32_error.h"

namespace kp::platform::clipboard {

namespace {

constexpr char kMagic[8] = {'K', 'P', 'C', 'L', 'I', 'P', '1', '\n'};
constexpr uint32_t kRaw = 0, kWtf8 = 1;
constexpr auto kLockWait = std::chrono::milliseconds(2000);

using Content = std::map<uint32_t, std::vector<uint8_t>>;

void put32(std::string& out, uint32_t v) {
    for (int k = 0; k < 4; ++k)
        out += static_cast<char>((v >> (8 * k)) & 0xFF);
}
void put64(std::string& out, uint64_t v) {
    for (int k = 0; k < 8; ++k)
        out += static_cast<char>((v >> (8 * k)) & 0xFF);
}
uint64_t get(const std::string& in, std::size_t at, int bytes) {
    uint64_t v = 0;
    for (int k = bytes - 1; k >= 0; --k)
        v = (v << 8) | static_cast<uint8_t>(in[at + k]);
    return v;
}

std::string serialise(const Content& content) {
    std::string out(kMagic, sizeof kMagic);
    for (const auto& [format, bytes] : content) {
        const bool text = format == kFormatUnicodeText && bytes.size() % 2 == 0;
        std::string body;
        if (text) {
            std::u16string units(bytes.size() / 2, u'\0');
            for (std::size_t i = 0; i < units.size(); ++i)
                units[i] = static_cast<char16_t>(bytes[2 * i] | (bytes[2 * i + 1] << 8));
            body = to_utf8(units);
        } else {
            body.assign(bytes.begin(), bytes.end());
        }
        put32(out, format);
        put32(out, text ? kWtf8 : kRaw);
        put64(out, body.size());
        out += body;
    }
    return out;
}

// Walks the whole records of a store: f(format, encoding, body).
template <class F> void each_record(const std::string& in, F&& f) {
    if (in.size() < sizeof kMagic || std::memcmp(in.data(), kMagic, sizeof kMagic) != 0) return;
    std::size_t at = sizeof kMagic;
    while (in.size() - at >= 16) {
        const uint32_t format = static_cast<uint32_t>(get(in, at, 4));
        const uint32_t encoding = static_cast<uint32_t>(get(in, at + 4, 4));
        const uint64_t size = get(in, at + 8, 8);
        at += 16;
        if (size > in.size() - at) break;
        if (encoding == kRaw || encoding == kWtf8)
            f(format, encoding, std::string_view(in.data() + at, static_cast<std::size_t>(size)));
        at += static_cast<std::size_t>(size);
    }
}

// A damaged store reads as far as its records are whole; records of an
// unknown encoding are skipped.
Content parse(const std::string& in) {
    Content content;
    each_record(in, [&](uint32_t format, uint32_t encoding, std::string_view body) {
        if (encoding == kWtf8) {
            std::vector<uint8_t> bytes;
            const std::u16string units = from_utf8(body);
            bytes.reserve(units.size() * 2);
            for (char16_t c : units) {
                bytes.push_back(static_cast<uint8_t>(c & 0xFF));
                bytes.push_back(static_cast<uint8_t>(c >> 8));
            }
            content[format] = std::move(bytes);
        } else {
            content[format].assign(body.begin(), body.end());
        }
    });
    return content;
}

// The formats a store holds, without decoding them.
std::vector<uint32_t> formats_of(const std::string& in) {
    std::vector<uint32_t> formats;
    each_record(in, [&](uint32_t format, uint32_t, std::string_view) { formats.push_back(format); });
    return formats;
}

bool read_whole(const std::string& path, std::string& out) {
    out.clear();
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        if (errno == ENOENT) return true; // no store yet: an empty clipboard
        set_last_error_from_errno();
        return false;
    }
    struct stat st {};
    if (fstat(fd, &st) == 0 && st.st_size > 0) {
        if (static_cast<uint64_t>(st.st_size) > kMaxData * 2) {
            ::close(fd);
            set_last_error(kErrorNotEnoughMemory);
            return false;
        }
        out.reserve(static_cast<std::size_t>(st.st_size));
    }
    char buf[1 << 16];
    for (;;) {
        const ssize_t n = ::read(fd, buf, sizeof buf);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            set_last_error_from_errno();
            ::close(fd);
            return false;
        }
        if (n == 0) break;
        out.append(buf, static_cast<std::size_t>(n));
    }
    ::close(fd);
    return true;
}

bool write_all(int fd, const std::string& data) {
    std::size_t done = 0;
    while (done < data.size()) {
        const ssize_t n = ::write(fd, data.data() + done, data.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += static_cast<std::size_t>(n);
    }
    return true;
}

class DeviceClipboard final : public Clipboard, private Opener {
  public:
    explicit DeviceClipboard(std::string root) : fixed_root_(std::move(root)) {}
    ~DeviceClipboard() override {
        if (lock_fd_ >= 0) ::close(lock_fd_);
    }

    bool open() override {
        if (held()) return true; // opened again by its opener: still open
        bool abandoned = false;
        if (!acquire(kLockWait, &abandoned)) return false;
        // An opener that ended without closing: what it changed is stored
        // as its close would have stored it, and its file lock is given up.
        if (abandoned) {
            if (dirty_) commit();
            content_.clear();
            if (lock_fd_ >= 0) ::close(lock_fd_);
            lock_fd_ = -1;
        }
        std::string dir;
        if (!locate(dir)) return abandon();
        lock_fd_ = ::open((dir + "/clipboard.lck").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
        if (lock_fd_ < 0) {
            set_last_error_from_errno();
            return abandon();
        }
        const auto deadline = std::chrono::steady_clock::now() + kLockWait;
        while (flock(lock_fd_, LOCK_EX | LOCK_NB) != 0) {
            if ((errno != EWOULDBLOCK && errno != EINTR) || std::chrono::steady_clock::now() >= deadline) {
                set_last_error(kErrorAccessDenied);
                return abandon();
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        std::string raw;
        if (!read_whole(dir + "/clipboard.dat", raw)) return abandon();
        content_ = parse(raw);
        dir_ = std::move(dir);
        dirty_ = false;
        return true;
    }

    bool close() override {
        if (!require_held()) return false;
        bool ok = true;
        if (dirty_) ok = commit();
        const uint32_t code = last_error();
        content_.clear();
        abandon();
        if (!ok) set_last_error(code);
        return ok;
    }

    bool empty() override {
        if (!require_held()) return false;
        content_.clear();
        dirty_ = true;
        return true;
    }

    bool set_data(uint32_t format, std::span<const uint8_t> data) override {
        if (!may_store(data)) return false;
        content_[format].assign(data.begin(), data.end());
        dirty_ = true;
        return true;
    }

    bool get_data(uint32_t format, std::vector<uint8_t>& out) override {
        out.clear();
        if (!require_held()) return false;
        auto it = content_.find(format);
        if (it == content_.end()) {
            set_last_error(kErrorSuccess);
            return false;
        }
        out = it->second;
        return true;
    }

    bool is_format_available(uint32_t format) override {
        std::vector<uint32_t> formats;
        if (held()) {
            for (const auto& entry : content_)
                formats.push_back(entry.first);
        } else {
            std::string dir, raw;
            if (!locate(dir, false)) {
                set_last_error(kErrorSuccess); // no system directory yet: an empty clipboard
                return false;
            }
            if (!read_whole(dir + "/clipboard.dat", raw)) return false;
            formats = formats_of(raw);
        }
        auto has = [&](uint32_t f) { return std::find(formats.begin(), formats.end(), f) != formats.end(); };
        // A device-independent bitmap also stands for the bitmap.
        return has(format) || (format == kFormatBitmap && has(kFormatDib));
    }

    bool bitmap_size(int32_t& width, int32_t& height) override {
        if (!require_held()) return false;
        for (uint32_t f : {kFormatBitmap, kFormatDib}) {
            auto it = content_.find(f);
            if (it != content_.end() && image_size(it->second, width, height)) return true;
        }
        set_last_error(kErrorSuccess);
        return false;
    }

  private:
    // The host directory of "\Windows" under the root, made when missing
    // (when `create`).
    bool locate(std::string& dir, bool create = true) {
        const std::string root = fixed_root_.empty() ? device_root() : fixed_root_;
        // The folder resolved beneath the root, links replaced by their targets.
        uint32_t code = 0;
        bool exists = false;
        if (!resolve_host_path(root, u"\\Windows", dir, exists, &code)) {
            set_last_error(code);
            return false;
        }
        if (!exists) {
            if (!create) {
                set_last_error(kErrorPathNotFound);
                return false;
            }
            if (::mkdir(dir.c_str(), 0777) != 0 && errno != EEXIST) {
                set_last_error_from_errno();
                return false;
            }
        }
        return true;
    }

    bool commit() {
        const std::string data = serialise(content_);
        const std::string final_path = dir_ + "/clipboard.dat";
        // A new file beside the store, readable as the store is (the umask
        // applies), named after this process so that writers never meet.
        const std::string temp =
            final_path + "." + std::to_string(::getpid()) + "." + std::to_string(serial_++);
        const int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd < 0) {
            set_last_error_from_errno();
            return false;
        }
        const bool written = write_all(fd, data) && fsync(fd) == 0;
        if (!written) set_last_error_from_errno();
        ::close(fd);
        if (!written || ::rename(temp.c_str(), final_path.c_str()) != 0) {
            if (written) set_last_error_from_errno();
            ::unlink(temp.c_str());
            return false;
        }
        return true;
    }

    // Releases the file lock and the opener's hold (the calling thread is
    // the opener); returns false for the caller.
    bool abandon() {
        if (lock_fd_ >= 0) {
            flock(lock_fd_, LOCK_UN);
            ::close(lock_fd_);
            lock_fd_ = -1;
        }
        release();
        return false;
    }

    std::string fixed_root_;
    // The members below belong to the opener thread while it holds the
    // clipboard open (Opener hands them from one opener to the next).
    int lock_fd_ = -1;
    std::string dir_;
    Content content_;
    bool dirty_ = false;
    uint32_t serial_ = 0;
};

} // namespace

std::unique_ptr<Clipboard> make_device_clipboard(std::string root) {
    return std::make_unique<DeviceClipboard>(std::move(root));
}

} // namespace kp::platform::clipboard
