// clipboard_x11.cpp - the clipboard as the X11 CLIPBOARD selection, through
// Xlib.
//
// One thread of the component owns the display connection and does all of
// the X11 work; the clipboard calls hand it jobs and wait for their answer.
// The thread
//   - owns the selection when text is put on the clipboard, and serves it
//     (targets TARGETS, TIMESTAMP, MULTIPLE, UTF8_STRING,
//     text/plain;charset=utf-8 and STRING; large text in pieces by the INCR
//     protocol) until another client takes the selection or the clipboard
//     object goes (at unload or at the end of the process);
//   - hands the text it owns to the clipboard manager (the owner of the
//     CLIPBOARD_MANAGER selection, asked for SAVE_TARGETS) when the object
//     goes, waiting at most the timeout for the manager to take it, so that
//     the text outlives the process;
//   - asks the owner for a target and waits at most the timeout for the
//     answer and for each piece of an incremental answer; an owner that
//     never answers gives 1460;
//   - notices a display that went away (Xlib's I/O error): every call then
//     fails with 21, and the process goes on.
//
// Text leaves as UTF-8: a lone surrogate, which UTF-8 cannot carry, leaves
// as U+FFFD.  As STRING it leaves as Latin-1, each character outside it
// (a surrogate pair is one character) as '?', as the conversion of the
// device does for characters its code page lacks.  Text arrives as UTF-8 (STRING as Latin-1 from owners that
// offer nothing else); bytes that are not UTF-8 arrive as U+FFFD, one each.  A bitmap is the owner's
// image/png or image/bmp target; its size is read from the image header.
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/clipboard.h"
#include "platform/clipboard_opener.h"
#include "platform/codepage.h"
#include "platform/win32_error.h"

namespace kp::platform::clipboard {

namespace {

using Clock = std::chrono::steady_clock;
using Formats = std::map<uint32_t, std::vector<uint8_t>>;

// Protocol errors on the component's own connections (a requestor window
// that disappeared during a transfer, ...) are expected and ignored; those
// of the host's connections go to the handler that was there before.
std::mutex g_handler_mutex;
std::vector<Display*> g_displays;
XErrorHandler g_previous_handler = nullptr;
XIOErrorHandler g_previous_io_handler = nullptr;
bool g_handler_installed = false;

bool is_ours(Display* d) {
    return std::find(g_displays.begin(), g_displays.end(), d) != g_displays.end();
}

int on_x_error(Display* d, XErrorEvent* e) {
    XErrorHandler previous = nullptr;
    {
        std::lock_guard<std::mutex> lock(g_handler_mutex);
        if (is_ours(d)) return 0;
        previous = g_previous_handler;
    }
    return previous ? previous(d, e) : 0;
}

// The loss of one of the component's connections is no reason to end the
// process: the handler returns, Xlib then calls the connection's exit
// handler (X11Clipboard::on_io_error), which marks the clipboard dead.
int on_x_io_error(Display* d) {
    XIOErrorHandler previous = nullptr;
    {
        std::lock_guard<std::mutex> lock(g_handler_mutex);
        if (is_ours(d)) return 0;
        previous = g_previous_io_handler;
    }
    return previous ? previous(d) : 0;
}

void register_display(Display* d) {
    std::lock_guard<std::mutex> lock(g_handler_mutex);
    if (!g_handler_installed) {
        g_previous_handler = XSetErrorHandler(on_x_error);
        g_previous_io_handler = XSetIOErrorHandler(on_x_io_error);
        g_handler_installed = true;
    }
    g_displays.push_back(d);
}

// With the last connection gone the handlers that were there before come
// back (unless someone installed others since): the component may be
// unloaded while Xlib stays.
void unregister_display(Display* d) {
    std::lock_guard<std::mutex> lock(g_handler_mutex);
    g_displays.erase(std::remove(g_displays.begin(), g_displays.end(), d), g_displays.end());
    if (!g_displays.empty() || !g_handler_installed) return;
    if (XErrorHandler now = XSetErrorHandler(g_previous_handler); now != on_x_error) XSetErrorHandler(now);
    if (XIOErrorHandler now = XSetIOErrorHandler(g_previous_io_handler); now != on_x_io_error)
        XSetIOErrorHandler(now);
    g_handler_installed = false;
}

// Lone surrogates (a high one not followed by a low one, a low one not
// preceded by a high one) become U+FFFD; pairs stay.
void replace_lone_surrogates(std::u16string& s) {
    for (std::size_t i = 0; i < s.size(); ++i) {
        const char16_t c = s[i];
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < s.size() && s[i + 1] >= 0xDC00 && s[i + 1] <= 0xDFFF)
            ++i;
        else if (c >= 0xD800 && c <= 0xDFFF)
            s[i] = u'\uFFFD';
    }
}

// UTF-8 for other clients: lone surrogates become U+FFFD.
std::string strict_utf8(std::u16string_view text) {
    std::u16string clean(text);
    replace_lone_surrogates(clean);
    return to_utf8(clean);
}

// Latin-1 for the clients that ask for STRING.
std::string latin1(std::u16string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char16_t c = text[i];
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
            text[i + 1] <= 0xDFFF)
            ++i;
        out.push_back(c <= 0xFF ? static_cast<char>(c) : '?');
    }
    return out;
}

// Decodes UTF-8 from another client: encodings of surrogates are not UTF-8
// either, so they become U+FFFD like any other invalid byte.
std::u16string lenient_utf16(std::string_view bytes) {
    std::u16string out = from_utf8(bytes);
    // from_utf8 keeps WTF-8 surrogates; a peer's text has none that are
    // paired, and a lone one is replaced.
    replace_lone_surrogates(out);
    return out;
}

struct Job {
    enum class Kind { Own, Fetch, Save } kind = Kind::Fetch;
    Formats formats; // Own: what the clipboard holds from now on
    Atom target = None;
    // Answer.
    bool done = false;
    uint32_t error = 0;   // Win32 code, 0 on success
    bool present = false; // Fetch: the owner gave the target
    Atom type = None;
    int format = 8;
    std::string data;           // format 8: the bytes
    std::vector<Atom> atoms;    // format 32 (TARGETS)
    bool from_own_data = false; // answered by this process's own selection
    bool no_owner = false;      // nobody owns the clipboard
};

// A transfer in pieces to a requestor (INCR).
struct Outgoing {
    Window requestor;
    Atom property;
    Atom type;
    std::shared_ptr<const std::string> data;
    std::size_t offset = 0;
    bool finished = false; // the zero-length piece was written
    Clock::time_point deadline;
};

class X11Clipboard final : public Clipboard, private Opener {
  public:
    X11Clipboard(Display* d, int timeout_ms) : dpy_(d), timeout_(std::chrono::milliseconds(timeout_ms)) {
        register_display(dpy_);
        XSetIOErrorExitHandler(dpy_, &X11Clipboard::on_io_error, this);
        XSetWindowAttributes attrs{};
        attrs.event_mask = PropertyChangeMask;
        win_ = XCreateWindow(dpy_, DefaultRootWindow(dpy_), -10, -10, 1, 1, 0, CopyFromParent, InputOnly,
                             CopyFromParent, CWEventMask, &attrs);
        const char* names[] = {"CLIPBOARD",    "TARGETS",
                               "UTF8_STRING",  "text/plain;charset=utf-8",
                               "INCR",         "KP120_SEL",
                               "image/png",    "image/bmp",
                               "TEXT",         "STRING",
                               "TIMESTAMP",    "MULTIPLE",
                               "ATOM_PAIR",    "CLIPBOARD_MANAGER",
                               "SAVE_TARGETS", "INTEGER"};
        Atom atoms[16];
        XInternAtoms(dpy_, const_cast<char**>(names), 16, False, atoms);
        clipboard_ = atoms[0];
        targets_ = atoms[1];
        utf8_ = atoms[2];
        text_plain_ = atoms[3];
        incr_ = atoms[4];
        property_ = atoms[5];
        png_ = atoms[6];
        bmp_ = atoms[7];
        text_ = atoms[8];
        string_ = atoms[9];
        timestamp_ = atoms[10];
        multiple_ = atoms[11];
        atom_pair_ = atoms[12];
        manager_ = atoms[13];
        save_targets_ = atoms[14];
        integer_ = atoms[15];
        long max = XExtendedMaxRequestSize(dpy_);
        if (max == 0) max = XMaxRequestSize(dpy_);
        chunk_ = std::clamp<std::size_t>(static_cast<std::size_t>(max) * 4 - 1024, 4096, 256 * 1024);
        XFlush(dpy_);
    }

    // Starts the thread; false (with the system's error) when its wake-up
    // descriptor or the thread cannot be made.
    bool start() {
        wake_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        if (wake_ < 0) {
            set_last_error_from_errno();
            return false;
        }
        try {
            worker_ = std::thread([this] { run(); });
        } catch (const std::system_error&) {
            set_last_error(kErrorNotEnoughMemory);
            return false;
        }
        return true;
    }

    ~X11Clipboard() override {
        // Text this process owns goes to the clipboard manager first.
        if (worker_.joinable() && worker_.get_id() != std::this_thread::get_id()) {
            Job save;
            save.kind = Job::Kind::Save;
            submit(save);
        }
        {
            std::lock_guard<std::mutex> lock(jobs_mutex_);
            stop_ = true;
        }
        wake();
        // The process may end from the thread itself (a handler of the
        // host's calling exit); it cannot wait for itself.
        if (worker_.joinable()) {
            if (worker_.get_id() == std::this_thread::get_id())
                worker_.detach();
            else
                worker_.join();
        }
        if (!dead_) {
            XDestroyWindow(dpy_, win_);
            XCloseDisplay(dpy_);
        } else {
            // Xlib cannot close a connection that died under one of its
            // calls (XCloseDisplay would wait for a lock that is never
            // given back): it is kept, unused, for the life of the process.
            std::lock_guard<std::mutex> lock(g_handler_mutex);
            static std::vector<Display*>* const dead = new std::vector<Display*>;
            dead->push_back(dpy_);
        }
        unregister_display(dpy_);
        if (wake_ >= 0) ::close(wake_);
    }

    bool open() override {
        if (held()) return true; // opened again by its opener: still open
        if (!acquire(std::chrono::milliseconds(2000))) return false;
        if (dead_ || wake_ < 0) {
            release();
            set_last_error(kErrorNotReady);
            return false;
        }
        return true;
    }

    bool close() override {
        if (!require_held()) return false;
        release();
        return true;
    }

    bool empty() override {
        if (!require_held()) return false;
        pending_.clear();
        return own();
    }

    bool set_data(uint32_t format, std::span<const uint8_t> data) override {
        if (!may_store(data)) return false;
        pending_[format].assign(data.begin(), data.end());
        return own();
    }

    bool get_data(uint32_t format, std::vector<uint8_t>& out) override {
        out.clear();
        if (!require_held()) return false;
        if (format == kFormatUnicodeText) {
            std::u16string text;
            if (!fetch_text(text)) return false;
            out = block_of_text(text);
            return true;
        }
        if (format == kFormatBitmap || format == kFormatDib) {
            Job job;
            if (!fetch_image(job)) return false;
            out.assign(job.data.begin(), job.data.end());
            return true;
        }
        // Other formats exist only while this process owns the selection.
        Job job;
        job.target = targets_;
        {
            std::lock_guard<std::mutex> lock(call_mutex_);
            if (!submit(job)) return false;
        }
        if (job.from_own_data) {
            const Formats f = owned_copy();
            auto it = f.find(format);
            if (it != f.end()) {
                out = it->second;
                return true;
            }
        }
        set_last_error(kErrorSuccess);
        return false;
    }

    bool is_format_available(uint32_t format) override {
        std::lock_guard<std::mutex> lock(call_mutex_);
        Job offer;
        offer.target = targets_;
        if (!submit(offer)) return false;
        const bool text = format == kFormatUnicodeText || format == kFormatText;
        const bool image = format == kFormatBitmap || format == kFormatDib;
        if (offer.from_own_data) {
            const Formats f = owned_copy();
            if (text) return f.count(kFormatUnicodeText) != 0;
            if (image) return f.count(kFormatBitmap) != 0 || f.count(kFormatDib) != 0;
            return f.count(format) != 0;
        }
        if (!offer.present) {
            if (offer.no_owner || !text) return false;
            // An owner without a list of targets is asked for the text itself.
            Job probe;
            probe.target = utf8_;
            return submit(probe) && probe.present;
        }
        auto has = [&](Atom a) {
            return std::find(offer.atoms.begin(), offer.atoms.end(), a) != offer.atoms.end();
        };
        if (text) return has(utf8_) || has(text_plain_) || has(string_);
        if (image) return has(png_) || has(bmp_);
        return false;
    }

    bool bitmap_size(int32_t& width, int32_t& height) override {
        if (!require_held()) return false;
        Job job;
        if (!fetch_image(job)) return false;
        if (image_size({reinterpret_cast<const uint8_t*>(job.data.data()), job.data.size()}, width, height))
            return true;
        set_last_error(kErrorInvalidData);
        return false;
    }

  private:
    static void on_io_error(Display*, void* self) {
        // The connection is gone; Xlib marks the display dead and every
        // later request on it returns at once.
        static_cast<X11Clipboard*>(self)->dead_ = true;
    }

    // ---- the calling side ----

    bool own() {
        std::lock_guard<std::mutex> lock(call_mutex_);
        Job job;
        job.kind = Job::Kind::Own;
        job.formats = pending_;
        return submit(job);
    }

    Formats owned_copy() {
        std::lock_guard<std::mutex> lock(owned_mutex_);
        return owned_;
    }

    bool fetch_text(std::u16string& text) {
        std::lock_guard<std::mutex> lock(call_mutex_);
        Job offer;
        offer.target = targets_;
        if (!submit(offer)) return false;
        if (offer.from_own_data) {
            const Formats f = owned_copy();
            auto it = f.find(kFormatUnicodeText);
            if (it == f.end()) {
                set_last_error(kErrorSuccess);
                return false;
            }
            text = text_of_block(it->second);
            return true;
        }
        // The owner's own list decides; an owner without one is asked for
        // UTF-8, then for Latin-1.
        std::vector<Atom> candidates;
        if (offer.present) {
            for (Atom a : {utf8_, text_plain_, string_})
                if (std::find(offer.atoms.begin(), offer.atoms.end(), a) != offer.atoms.end())
                    candidates.push_back(a);
        } else {
            candidates = {utf8_, string_};
        }
        for (Atom target : candidates) {
            Job job;
            job.target = target;
            if (!submit(job)) return false;
            if (!job.present) continue;
            if (target == string_) {
                text.clear();
                for (unsigned char c : job.data)
                    text.push_back(c);
            } else {
                text = lenient_utf16(job.data);
            }
            // The text ends at its first zero, as the clipboard's text does.
            text.resize(std::min(text.size(), text.find(u'\0')));
            return true;
        }
        set_last_error(kErrorSuccess);
        return false;
    }

    bool fetch_image(Job& out) {
        std::lock_guard<std::mutex> lock(call_mutex_);
        for (Atom target : {png_, bmp_}) {
            Job job;
            job.target = target;
            if (!submit(job)) return false;
            if (job.from_own_data) {
                const Formats f = owned_copy();
                for (uint32_t k : {kFormatBitmap, kFormatDib}) {
                    auto it = f.find(k);
                    if (it != f.end()) {
                        out.data.assign(it->second.begin(), it->second.end());
                        return true;
                    }
                }
                break;
            }
            if (job.present) {
                out.data = std::move(job.data);
                return true;
            }
        }
        set_last_error(kErrorSuccess);
        return false;
    }

    // Hands a job to the thread and waits for its answer.
    bool submit(Job& job) {
        {
            std::unique_lock<std::mutex> lock(jobs_mutex_);
            if (dead_) {
                set_last_error(kErrorNotReady);
                return false;
            }
            jobs_.push_back(&job);
        }
        wake();
        std::unique_lock<std::mutex> lock(jobs_mutex_);
        done_cv_.wait(lock, [&] { return job.done; });
        if (job.error) {
            set_last_error(job.error);
            return false;
        }
        return true;
    }

    void wake() {
        const uint64_t one = 1;
        if (wake_ >= 0) [[maybe_unused]]
            ssize_t n = ::write(wake_, &one, sizeof one);
    }

    void finish(Job* job, uint32_t error) {
        std::lock_guard<std::mutex> lock(jobs_mutex_);
        job->error = error;
        job->done = true;
        done_cv_.notify_all();
    }
    // Ends the fetch under way (a plain or an incremental one) with `error`.
    void end_fetch(uint32_t error) {
        fetch_incr_ = false;
        finish(std::exchange(fetch_, nullptr), error);
    }

    // ---- the thread ----

    // The thread's body: whatever escapes the loop (an allocation that
    // fails) ends the thread as the loss of the display does.
    void run() noexcept {
        try {
            loop();
        } catch (...) {
            dead_ = true;
        }
        try {
            outgoing_.clear();
        } catch (...) {}
        if (fetch_) finish(std::exchange(fetch_, nullptr), kErrorNotReady);
        if (save_) finish(std::exchange(save_, nullptr), kErrorNotReady);
        std::lock_guard<std::mutex> lock(jobs_mutex_);
        for (Job* job : jobs_) {
            job->error = kErrorNotReady;
            job->done = true;
        }
        jobs_.clear();
        dead_ = true;
        done_cv_.notify_all();
    }

    void loop() {
        for (;;) {
            std::deque<Job*> jobs;
            {
                std::lock_guard<std::mutex> lock(jobs_mutex_);
                if (stop_) break;
                jobs.swap(jobs_);
            }
            for (Job* job : jobs) {
                if (dead_)
                    finish(job, kErrorNotReady);
                else if (job->kind == Job::Kind::Own)
                    take_ownership(job);
                else if (job->kind == Job::Kind::Save)
                    start_save(job);
                else
                    start_fetch(job);
            }
            while (!dead_ && XPending(dpy_) > 0) {
                XEvent ev;
                XNextEvent(dpy_, &ev);
                handle(ev);
            }
            if (!dead_) XFlush(dpy_);
            if (dead_) {
                if (fetch_) finish(std::exchange(fetch_, nullptr), kErrorNotReady);
                outgoing_.clear();
            }
            wait_for_work();
            expire();
        }
    }

    void wait_for_work() {
        // Xlib reads whatever the server has sent while it flushes (XFlush
        // included): events can sit in its queue with nothing left on the
        // connection to wake the poll.  They are handled first.
        if (!dead_ && XEventsQueued(dpy_, QueuedAlready) > 0) return;
        int timeout = -1;
        const auto now = Clock::now();
        auto consider = [&](Clock::time_point t) {
            const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(t - now).count() + 1;
            const int m = static_cast<int>(std::clamp<long long>(ms, 0, 60000));
            timeout = timeout < 0 ? m : std::min(timeout, m);
        };
        if (fetch_) consider(fetch_deadline_);
        if (save_) consider(save_deadline_);
        for (const Outgoing& o : outgoing_)
            consider(o.deadline);
        pollfd fds[2] = {{wake_, POLLIN, 0}, {dead_ ? -1 : ConnectionNumber(dpy_), POLLIN, 0}};
        const int r = ::poll(fds, 2, timeout);
        if (r > 0 && (fds[0].revents & POLLIN)) {
            uint64_t v;
            [[maybe_unused]] ssize_t n = ::read(wake_, &v, sizeof v);
        }
        // A hang-up on the connection shows as an I/O error in the next
        // XPending, which marks the display dead.
    }

    void expire() {
        const auto now = Clock::now();
        if (fetch_ && now >= fetch_deadline_) {
            // The owner did not answer (or stopped in the middle of a
            // transfer); its late answer is dropped with the property.
            if (!dead_) XDeleteProperty(dpy_, win_, property_);
            end_fetch(kErrorTimeout);
        }
        // A clipboard manager that does not answer keeps nothing.
        if (save_ && now >= save_deadline_) finish(std::exchange(save_, nullptr), kErrorTimeout);
        outgoing_.remove_if([&](const Outgoing& o) { return now >= o.deadline; });
    }

    void take_ownership(Job* job) {
        auto text = std::make_shared<std::string>();
        auto it = job->formats.find(kFormatUnicodeText);
        const bool has_text = it != job->formats.end();
        std::shared_ptr<std::string> text8;
        if (has_text) {
            const std::u16string units = text_of_block(it->second);
            *text = strict_utf8(units);
            text8 = std::make_shared<std::string>(latin1(units));
        }
        // The selection is taken at the server's time of now (a zero-length
        // append to a property of the window tells it), which TIMESTAMP
        // answers.
        const Time now = server_time();
        XSetSelectionOwner(dpy_, clipboard_, win_, now);
        if (XGetSelectionOwner(dpy_, clipboard_) != win_) {
            finish(job, dead_ ? kErrorNotReady : kErrorAccessDenied);
            return;
        }
        {
            std::lock_guard<std::mutex> lock(owned_mutex_);
            owned_ = job->formats;
        }
        served_text_ = has_text ? std::move(text) : nullptr;
        served_latin1_ = std::move(text8);
        owned_since_ = now;
        owning_ = true;
        finish(job, 0);
    }

    void start_fetch(Job* job) {
        const Window owner = XGetSelectionOwner(dpy_, clipboard_);
        if (dead_) {
            finish(job, kErrorNotReady);
            return;
        }
        if (owner == None) {
            job->present = false;
            job->no_owner = true;
            finish(job, 0);
            return;
        }
        if (owner == win_) {
            job->from_own_data = true;
            if (job->target == targets_) {
                job->present = true;
                job->atoms = own_targets();
            }
            finish(job, 0);
            return;
        }
        XDeleteProperty(dpy_, win_, property_);
        XConvertSelection(dpy_, clipboard_, job->target, property_, win_, CurrentTime);
        XFlush(dpy_);
        fetch_ = job;
        fetch_incr_ = false;
        fetch_deadline_ = Clock::now() + timeout_;
    }

    std::vector<Atom> own_targets() const {
        std::vector<Atom> t{targets_, timestamp_, multiple_};
        if (served_text_) {
            t.push_back(utf8_);
            t.push_back(text_plain_);
            t.push_back(string_);
        }
        return t;
    }

    // The server's time: the PropertyNotify of an empty append to a
    // property of the thread's window carries it.
    Time server_time() {
        XChangeProperty(dpy_, win_, timestamp_, integer_, 32, PropModeAppend, nullptr, 0);
        XSync(dpy_, False);
        XEvent ev;
        auto is_ours = [](Display*, XEvent* e, XPointer arg) -> Bool {
            const auto* self = reinterpret_cast<const X11Clipboard*>(arg);
            return e->type == PropertyNotify && e->xproperty.window == self->win_ &&
                   e->xproperty.atom == self->timestamp_;
        };
        if (!dead_ && XCheckIfEvent(dpy_, &ev, is_ours, reinterpret_cast<XPointer>(this)))
            return ev.xproperty.time;
        return CurrentTime;
    }

    // Asks the clipboard manager to take the text this process owns; the
    // job ends with its answer or after the timeout.  Nothing to hand over
    // or no manager: done at once.
    void start_save(Job* job) {
        const Window manager = owning_ ? XGetSelectionOwner(dpy_, manager_) : None;
        if (dead_ || manager == None || XGetSelectionOwner(dpy_, clipboard_) != win_) {
            finish(job, 0);
            return;
        }
        // The targets worth keeping: the text's.
        std::vector<long> keep;
        for (Atom a : own_targets())
            if (a != targets_ && a != timestamp_ && a != multiple_) keep.push_back(static_cast<long>(a));
        XChangeProperty(dpy_, win_, save_targets_, XA_ATOM, 32, PropModeReplace,
                        reinterpret_cast<const unsigned char*>(keep.data()), static_cast<int>(keep.size()));
        XConvertSelection(dpy_, manager_, save_targets_, save_targets_, win_, CurrentTime);
        XFlush(dpy_);
        save_ = job;
        save_deadline_ = Clock::now() + timeout_;
    }

    // Reads and deletes the whole property.  False when it cannot be read.
    bool read_property(Atom& type, int& format, std::string& bytes, std::vector<Atom>& atoms) {
        Atom actual = None;
        int fmt = 0;
        unsigned long items = 0, after = 0;
        unsigned char* data = nullptr;
        const long longs = static_cast<long>(kMaxData / 4);
        if (XGetWindowProperty(dpy_, win_, property_, 0, longs, True, AnyPropertyType, &actual, &fmt, &items,
                               &after, &data) != Success) {
            return false;
        }
        type = actual;
        format = fmt;
        bytes.clear();
        atoms.clear();
        if (data) {
            if (fmt == 8) {
                bytes.assign(reinterpret_cast<const char*>(data), items);
            } else if (fmt == 32) {
                // Xlib hands 32-bit items as longs.
                const long* l = reinterpret_cast<const long*>(data);
                for (unsigned long k = 0; k < items; ++k)
                    atoms.push_back(static_cast<Atom>(l[k]));
            } else if (fmt == 16) {
                bytes.assign(reinterpret_cast<const char*>(data), items * 2);
            }
            XFree(data);
        }
        if (after != 0) XDeleteProperty(dpy_, win_, property_);
        return after == 0;
    }

    void handle(XEvent& ev) {
        switch (ev.type) {
        case SelectionNotify:
            if (save_ && ev.xselection.selection == manager_ && ev.xselection.target == save_targets_) {
                XDeleteProperty(dpy_, win_, save_targets_);
                finish(std::exchange(save_, nullptr), 0);
                break;
            }
            if (fetch_ && !fetch_incr_ && ev.xselection.requestor == win_ &&
                ev.xselection.selection == clipboard_ && ev.xselection.target == fetch_->target)
                on_selection_notify(ev.xselection);
            break;
        case PropertyNotify:
            if (ev.xproperty.window == win_) {
                if (fetch_ && fetch_incr_ && ev.xproperty.atom == property_ &&
                    ev.xproperty.state == PropertyNewValue)
                    on_incr_piece();
            } else if (ev.xproperty.state == PropertyDelete) {
                on_requestor_deleted(ev.xproperty.window, ev.xproperty.atom);
            }
            break;
        case SelectionRequest:
            serve(ev.xselectionrequest);
            break;
        case SelectionClear:
            if (ev.xselectionclear.selection == clipboard_) {
                // Another client took the clipboard.
                owning_ = false;
                served_text_ = nullptr;
                served_latin1_ = nullptr;
                std::lock_guard<std::mutex> lock(owned_mutex_);
                owned_.clear();
            }
            break;
        default:
            break;
        }
    }

    void on_selection_notify(const XSelectionEvent& e) {
        Job* job = fetch_;
        if (e.property == None) {
            job->present = false;
            end_fetch(0);
            return;
        }
        Atom type;
        int format;
        std::string bytes;
        std::vector<Atom> atoms;
        if (!read_property(type, format, bytes, atoms)) {
            end_fetch(kErrorNotEnoughMemory);
            return;
        }
        if (type == incr_) {
            // The owner sends the data in pieces; each piece must come
            // within the timeout.
            fetch_incr_ = true;
            job->data.clear();
            fetch_deadline_ = Clock::now() + timeout_;
            return;
        }
        job->present = true;
        job->type = type;
        job->format = format;
        job->data = std::move(bytes);
        job->atoms = std::move(atoms);
        end_fetch(0);
    }

    void on_incr_piece() {
        Job* job = fetch_;
        Atom type;
        int format;
        std::string bytes;
        std::vector<Atom> atoms;
        if (!read_property(type, format, bytes, atoms)) {
            end_fetch(kErrorNotEnoughMemory);
            return;
        }
        if (bytes.empty()) { // the last, empty piece
            job->present = true;
            job->type = type;
            job->format = 8;
            end_fetch(0);
            return;
        }
        if (job->data.size() + bytes.size() > kMaxData) {
            job->data.clear();
            end_fetch(kErrorNotEnoughMemory);
            return;
        }
        job->data += bytes;
        fetch_deadline_ = Clock::now() + timeout_;
    }

    void serve(const XSelectionRequestEvent& r) {
        XSelectionEvent reply{};
        reply.type = SelectionNotify;
        reply.display = dpy_;
        reply.requestor = r.requestor;
        reply.selection = r.selection;
        reply.target = r.target;
        reply.time = r.time;
        // Obsolete requestors name no property: the target stands for it.
        const Atom property = r.property == None ? r.target : r.property;
        reply.property = None;
        // Requests made before this process took the selection are refused.
        const bool mine = r.selection == clipboard_ && r.owner == win_ && owning_ &&
                          (r.time == CurrentTime || owned_since_ == CurrentTime || r.time >= owned_since_);
        if (mine) {
            if (r.target == multiple_) {
                if (r.property != None && convert_multiple(r.requestor, r.property))
                    reply.property = property;
            } else if (convert(r.requestor, r.target, property)) {
                reply.property = property;
            }
        }
        XEvent out{};
        out.xselection = reply;
        XSendEvent(dpy_, r.requestor, False, NoEventMask, &out);
        XFlush(dpy_);
    }

    // Writes `target` of the owned clipboard to the requestor's property;
    // false for a target this process does not offer.
    bool convert(Window requestor, Atom target, Atom property) {
        if (property == None) return false;
        if (target == targets_) {
            const std::vector<Atom> t = own_targets();
            std::vector<long> longs(t.begin(), t.end());
            XChangeProperty(dpy_, requestor, property, XA_ATOM, 32, PropModeReplace,
                            reinterpret_cast<const unsigned char*>(longs.data()),
                            static_cast<int>(longs.size()));
            return true;
        }
        if (target == timestamp_) {
            const long t = static_cast<long>(owned_since_);
            XChangeProperty(dpy_, requestor, property, integer_, 32, PropModeReplace,
                            reinterpret_cast<const unsigned char*>(&t), 1);
            return true;
        }
        std::shared_ptr<const std::string> data;
        if ((target == utf8_ || target == text_plain_) && served_text_)
            data = served_text_;
        else if (target == string_ && served_latin1_)
            data = served_latin1_;
        if (!data) return false;
        if (data->size() <= chunk_) {
            XChangeProperty(dpy_, requestor, property, target, 8, PropModeReplace,
                            reinterpret_cast<const unsigned char*>(data->data()),
                            static_cast<int>(data->size()));
        } else {
            XSelectInput(dpy_, requestor, PropertyChangeMask);
            const long size = static_cast<long>(data->size());
            XChangeProperty(dpy_, requestor, property, incr_, 32, PropModeReplace,
                            reinterpret_cast<const unsigned char*>(&size), 1);
            outgoing_.push_back({requestor, property, target, data, 0, false, Clock::now() + timeout_ * 5});
        }
        return true;
    }

    // MULTIPLE: the requestor's property lists (target, property) pairs;
    // each pair is converted on its own, and the property of a pair that
    // cannot be converted is replaced by None in the list written back.
    bool convert_multiple(Window requestor, Atom list) {
        Atom actual = None;
        int format = 0;
        unsigned long items = 0, after = 0;
        unsigned char* data = nullptr;
        if (XGetWindowProperty(dpy_, requestor, list, 0, 1 << 16, False, AnyPropertyType, &actual, &format,
                               &items, &after, &data) != Success)
            return false;
        std::vector<long> pairs;
        if (data && format == 32) {
            const long* l = reinterpret_cast<const long*>(data);
            pairs.assign(l, l + (items & ~1ul));
        }
        if (data) XFree(data);
        if (pairs.empty()) return false;
        for (std::size_t k = 0; k < pairs.size(); k += 2) {
            const Atom target = static_cast<Atom>(pairs[k]), property = static_cast<Atom>(pairs[k + 1]);
            if (target == multiple_ || !convert(requestor, target, property)) pairs[k + 1] = None;
        }
        XChangeProperty(dpy_, requestor, list, atom_pair_, 32, PropModeReplace,
                        reinterpret_cast<const unsigned char*>(pairs.data()), static_cast<int>(pairs.size()));
        return true;
    }

    void on_requestor_deleted(Window w, Atom property) {
        for (auto it = outgoing_.begin(); it != outgoing_.end(); ++it) {
            if (it->requestor != w || it->property != property) continue;
            if (it->finished) {
                outgoing_.erase(it);
                return;
            }
            const std::size_t n = std::min(chunk_, it->data->size() - it->offset);
            XChangeProperty(dpy_, w, property, it->type, 8, PropModeReplace,
                            reinterpret_cast<const unsigned char*>(it->data->data() + it->offset),
                            static_cast<int>(n));
            it->offset += n;
            if (n == 0) {
                // The zero-length piece ends the transfer.
                XSelectInput(dpy_, w, NoEventMask);
                outgoing_.erase(it);
            } else {
                it->deadline = Clock::now() + timeout_ * 5;
            }
            XFlush(dpy_);
            return;
        }
    }

    Display* dpy_;
    std::chrono::milliseconds timeout_;
    Window win_ = None;
    Atom clipboard_, targets_, utf8_, text_plain_, incr_, property_, png_, bmp_, text_, string_;
    Atom timestamp_, multiple_, atom_pair_, manager_, save_targets_, integer_;
    std::size_t chunk_ = 65536;
    int wake_ = -1;
    std::thread worker_;
    std::atomic<bool> dead_{false};

    // Calling side: the formats put by the opener thread (Opener hands
    // them from one opener to the next).
    Formats pending_;
    std::mutex call_mutex_;

    // Jobs.
    std::mutex jobs_mutex_;
    std::condition_variable done_cv_;
    std::deque<Job*> jobs_;
    bool stop_ = false;

    // Thread state.
    Job* fetch_ = nullptr;
    bool fetch_incr_ = false;
    Clock::time_point fetch_deadline_;
    bool owning_ = false;
    Time owned_since_ = CurrentTime;
    std::shared_ptr<const std::string> served_text_, served_latin1_;
    Job* save_ = nullptr;
    Clock::time_point save_deadline_;
    std::list<Outgoing> outgoing_;
    std::mutex owned_mutex_;
    Formats owned_;
};

} // namespace

std::unique_ptr<Clipboard> make_x11_clipboard(const std::string& display, int timeout_ms) {
    Display* d = XOpenDisplay(display.c_str());
    if (!d) {
        set_last_error(kErrorNotReady);
        return nullptr;
    }
    auto clipboard = std::make_unique<X11Clipboard>(d, timeout_ms);
    if (!clipboard->start()) return nullptr;
    return clipboard;
}

} // namespace kp::platform::clipboard
