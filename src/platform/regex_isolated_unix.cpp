// regex_isolated_unix.cpp - platform::IsolatedRegex: the GNU regex engine in
// a forked child, answering over a socket pair within a time limit.
//
// The child is a copy of the calling thread only: it compiles with its own
// copy of the engine's syntax word (no lock to take), writes one status
// byte, reads the subject (its length, then its bytes), matches it and
// writes the match length and the registers, then exits.  The socket pair
// is used rather than pipes so that the parent's sends never raise SIGPIPE
// (MSG_NOSIGNAL) when the child is gone.
#include "platform/regex.h"

#include <poll.h>
#include <regex.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/locale.h"

namespace kp::platform {

namespace {

using Clock = std::chrono::steady_clock;

// More registers than a pattern of the component's size can have.
constexpr uint32_t kMaxRegisters = 1u << 20;

// Waits for `events` on fd until `deadline`; false when the time is out.
bool wait_for(int fd, short events, Clock::time_point deadline) {
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) return false;
        pollfd p{fd, events, 0};
        const int r = ::poll(&p, 1, static_cast<int>(left));
        if (r > 0) return true;
        if (r < 0 && errno != EINTR) return false;
    }
}

// Receives exactly n bytes before `deadline` (no deadline in the child).
bool receive(int fd, void* data, std::size_t n, const Clock::time_point* deadline) {
    auto* p = static_cast<char*>(data);
    while (n > 0) {
        if (deadline && !wait_for(fd, POLLIN, *deadline)) return false;
        const ssize_t r = ::recv(fd, p, n, 0);
        if (r < 0 && errno == EINTR) continue;
        if (r <= 0) return false;
        p += r;
        n -= static_cast<std::size_t>(r);
    }
    return true;
}

bool send_all(int fd, const void* data, std::size_t n, const Clock::time_point* deadline) {
    const auto* p = static_cast<const char*>(data);
    while (n > 0) {
        if (deadline && !wait_for(fd, POLLOUT, *deadline)) return false;
        const ssize_t r = ::send(fd, p, n, MSG_NOSIGNAL);
        if (r < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (r <= 0) return false;
        p += r;
        n -= static_cast<std::size_t>(r);
    }
    return true;
}

#ifdef KP120_COVERAGE
extern "C" void __gcov_dump();
#endif

// The child ends without the parent's exit handlers (a coverage build
// writes the child's counts first).
[[noreturn]] void leave() {
#ifdef KP120_COVERAGE
    __gcov_dump();
#endif
    ::_exit(0);
}

[[noreturn]] void child_main(int fd, std::string_view pattern, unsigned long syntax) {
    // A child left behind by a caller that died is stopped with it.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    CLocaleScope c_locale;
    re_pattern_buffer buffer;
    std::memset(&buffer, 0, sizeof buffer);
    re_set_syntax(syntax);
    const uint8_t status = re_compile_pattern(pattern.data(), pattern.size(), &buffer) ? 0 : 1;
    uint64_t length = 0;
    if (!send_all(fd, &status, 1, nullptr) || status == 0 || !receive(fd, &length, sizeof length, nullptr) ||
        length > INT32_MAX)
        leave();
    std::string subject(length, '\0');
    if (!receive(fd, subject.data(), length, nullptr)) leave();
    re_registers registers;
    std::memset(&registers, 0, sizeof registers);
    buffer.regs_allocated = REGS_UNALLOCATED;
    const int64_t n = re_match(&buffer, subject.data(), static_cast<regoff_t>(length), 0, &registers);
    const uint32_t count = n >= 0 ? static_cast<uint32_t>(registers.num_regs) : 0;
    std::string answer(sizeof n + sizeof count + count * 2 * sizeof(int64_t), '\0');
    char* out = answer.data();
    auto put = [&out](const void* v, std::size_t size) {
        std::memcpy(out, v, size);
        out += size;
    };
    put(&n, sizeof n);
    put(&count, sizeof count);
    for (uint32_t i = 0; i < count; ++i) {
        const int64_t pair[2] = {registers.start[i], registers.end[i]};
        put(pair, sizeof pair);
    }
    send_all(fd, answer.data(), answer.size(), nullptr);
    leave();
}

} // namespace

IsolatedRegex::IsolatedRegex(std::chrono::milliseconds limit) : limit_(limit) {}

IsolatedRegex::~IsolatedRegex() {
    stop();
}

void IsolatedRegex::stop() {
    if (channel_ >= 0) ::close(channel_);
    channel_ = -1;
    // A child that has answered, or waits for a subject (the closed channel
    // ends its wait), exits by itself; one still at work is stopped.
    if (child_ > 0) {
        if (overran_) ::kill(child_, SIGKILL);
        while (::waitpid(child_, nullptr, 0) < 0 && errno == EINTR) {}
    }
    child_ = -1;
}

bool IsolatedRegex::compile(std::string_view pattern, unsigned long syntax) {
    if (started_) return false;
    int fds[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) return false;
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::close(fds[0]);
        child_main(fds[1], pattern, syntax);
    }
    ::close(fds[1]);
    if (pid < 0) {
        ::close(fds[0]);
        return false;
    }
    started_ = true;
    channel_ = fds[0];
    child_ = pid;
    const Clock::time_point deadline = Clock::now() + limit_;
    uint8_t status = 0;
    overran_ = !receive(channel_, &status, 1, &deadline);
    compiled_ = !overran_ && status == 1;
    if (!compiled_) stop();
    return compiled_;
}

long IsolatedRegex::match(std::string_view subject) {
    if (!compiled_ || channel_ < 0 || subject.size() > static_cast<std::size_t>(INT32_MAX)) return -1;
    const Clock::time_point deadline = Clock::now() + limit_;
    const uint64_t length = subject.size();
    int64_t n = -1;
    uint32_t count = 0;
    bool ok = send_all(channel_, &length, sizeof length, &deadline) &&
              send_all(channel_, subject.data(), subject.size(), &deadline) &&
              receive(channel_, &n, sizeof n, &deadline) &&
              receive(channel_, &count, sizeof count, &deadline);
    groups_.clear();
    ok = ok && count <= kMaxRegisters;
    for (uint32_t i = 0; ok && i < count; ++i) {
        int64_t pair[2];
        ok = receive(channel_, pair, sizeof pair, &deadline);
        groups_.emplace_back(static_cast<long>(pair[0]), static_cast<long>(pair[1]));
    }
    overran_ = !ok;
    stop();
    if (!ok) {
        groups_.clear();
        return -1;
    }
    return n < 0 ? -1 : static_cast<long>(n);
}

bool IsolatedRegex::group(std::size_t i, std::size_t* start, std::size_t* end) const {
    if (i >= groups_.size() || groups_[i].first < 0 || groups_[i].second < groups_[i].first) return false;
    if (start) *start = static_cast<std::size_t>(groups_[i].first);
    if (end) *end = static_cast<std::size_t>(groups_[i].second);
    return true;
}

} // namespace kp::platform
