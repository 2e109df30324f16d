// x11_titles.cpp - the window search's cache of titles and classes (see
// x11_titles.h).
#include "x11_titles.h"

#include <unicode/uchar.h>

#include <cstdlib>
#include <unordered_set>

#include "wtf8.h"

namespace kp::host::x11 {

// A title as compared: each character upper-cased (simple case mapping),
// as Win32 compares window titles and class names.
std::u16string folded(std::string_view utf8_text) {
    std::u16string u = utf16(utf8_text), out;
    out.reserve(u.size());
    for (std::size_t i = 0; i < u.size(); ++i) {
        UChar32 c = u[i];
        if (c >= 0xD800 && c < 0xDC00 && i + 1 < u.size() && u[i + 1] >= 0xDC00 && u[i + 1] < 0xE000)
            c = 0x10000 + ((c - 0xD800) << 10) + (u[++i] - 0xDC00);
        c = u_toupper(c);
        if (c >= 0x10000) {
            out.push_back(static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10)));
            out.push_back(static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF)));
        } else {
            out.push_back(static_cast<char16_t>(c));
        }
    }
    return out;
}

TitleCache::TitleCache(xcb_connection_t* xcb, xcb_window_t root, xcb_atom_t client_list,
                       xcb_atom_t net_wm_name, TitleReader read_title)
    : xcb_(xcb), root_(root), client_list_(client_list), net_wm_name_(net_wm_name),
      read_title_(std::move(read_title)) {}

TitleCache::~TitleCache() {
    xcb_disconnect(xcb_);
}

xcb_window_t TitleCache::find(const std::u16string* title, const std::u16string* class_name) {
    std::lock_guard<std::mutex> guard(mutex_);
    if (xcb_connection_has_error(xcb_)) return 0;
    const std::vector<xcb_window_t> list = top_level_windows();
    while (xcb_generic_event_t* e = xcb_poll_for_queued_event(xcb_)) {
        if ((e->response_type & 0x7F) == XCB_PROPERTY_NOTIFY) {
            const auto* p = reinterpret_cast<xcb_property_notify_event_t*>(e);
            if (p->atom == net_wm_name_ || p->atom == XCB_ATOM_WM_NAME || p->atom == XCB_ATOM_WM_CLASS)
                if (auto it = cache_.find(p->window); it != cache_.end()) it->second.fresh = false;
        }
        free(e);
    }
    refresh(list);
    for (xcb_window_t w : list) {
        auto it = cache_.find(w);
        if (it == cache_.end()) continue;
        const Cached& k = it->second;
        if (title && k.title != *title) continue;
        if (class_name && k.instance != *class_name && k.cls != *class_name) continue;
        return w;
    }
    return 0;
}

// Reads the properties of the listed windows that are new or changed,
// all requests first; forgets the windows no longer listed.
void TitleCache::refresh(const std::vector<xcb_window_t>& list) {
    std::unordered_map<xcb_window_t, Cached> kept;
    kept.reserve(list.size());
    struct Pending {
        xcb_window_t w;
        xcb_get_property_cookie_t net, wm, cls;
    };
    std::vector<Pending> pending;
    const uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
    for (xcb_window_t w : list) {
        auto it = cache_.find(w);
        if (it != cache_.end() && it->second.fresh) {
            kept.emplace(w, std::move(it->second));
            continue;
        }
        if (it == cache_.end()) xcb_change_window_attributes(xcb_, w, XCB_CW_EVENT_MASK, &mask);
        constexpr uint32_t kWords = 1 << 18; // titles up to a megabyte
        pending.push_back(
            {w, xcb_get_property(xcb_, 0, w, net_wm_name_, XCB_GET_PROPERTY_TYPE_ANY, 0, kWords),
             xcb_get_property(xcb_, 0, w, XCB_ATOM_WM_NAME, XCB_GET_PROPERTY_TYPE_ANY, 0, kWords),
             xcb_get_property(xcb_, 0, w, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 0, 1024)});
    }
    for (Pending& p : pending) {
        Cached k;
        bool gone = false;
        std::string net, wm, all;
        xcb_atom_t net_type = XCB_NONE, wm_type = XCB_NONE, cls_type = XCB_NONE;
        const bool has_net = text_reply(p.net, net, net_type, &gone);
        const bool has_wm = text_reply(p.wm, wm, wm_type, &gone);
        text_reply(p.cls, all, cls_type, &gone);
        if (has_net || has_wm)
            k.title = folded(has_net ? read_title_(net_type, net) : read_title_(wm_type, wm));
        // WM_CLASS: the instance name, NUL, the class name, NUL.
        const std::size_t nul = all.find('\0');
        k.instance = folded(all.substr(0, nul));
        if (nul != std::string::npos) {
            std::string cls = all.substr(nul + 1);
            if (!cls.empty() && cls.back() == '\0') cls.pop_back();
            k.cls = folded(cls);
        }
        k.fresh = true;
        if (!gone) kept.emplace(p.w, std::move(k));
    }
    cache_ = std::move(kept);
}

// An 8-bit property's bytes and type; false when the window has no such
// property (*gone when the window no longer exists).
bool TitleCache::text_reply(xcb_get_property_cookie_t cookie, std::string& out, xcb_atom_t& type,
                            bool* gone) {
    xcb_generic_error_t* error = nullptr;
    xcb_get_property_reply_t* r = xcb_get_property_reply(xcb_, cookie, &error);
    if (error) {
        *gone = true;
        free(error);
    }
    if (!r) return false;
    const bool present = r->type != XCB_NONE && r->format == 8;
    if (present) {
        const auto* v = static_cast<const unsigned char*>(xcb_get_property_value(r));
        const std::size_t n = static_cast<std::size_t>(xcb_get_property_value_length(r));
        out.assign(reinterpret_cast<const char*>(v), n);
        type = r->type;
    }
    free(r);
    return present;
}

// The windows of the window manager's client list, else (no window
// manager) the root's children; both asked for at once.
std::vector<xcb_window_t> TitleCache::top_level_windows() {
    const xcb_window_t root = root_;
    auto list_cookie = xcb_get_property(xcb_, 0, root, client_list_, XCB_GET_PROPERTY_TYPE_ANY, 0, 1 << 16);
    auto tree_cookie = xcb_query_tree(xcb_, root);
    std::vector<xcb_window_t> out;
    if (xcb_get_property_reply_t* r = xcb_get_property_reply(xcb_, list_cookie, nullptr)) {
        if (r->format == 32) {
            const auto* v = static_cast<const xcb_window_t*>(xcb_get_property_value(r));
            out.assign(v, v + xcb_get_property_value_length(r) / 4);
        }
        free(r);
    }
    if (xcb_query_tree_reply_t* r = xcb_query_tree_reply(xcb_, tree_cookie, nullptr)) {
        const xcb_window_t* v = xcb_query_tree_children(r);
        const int n = xcb_query_tree_children_length(r);
        if (out.empty()) {
            out.assign(v, v + n);
        } else {
            // A window manager lists the windows it manages; a hidden
            // (withdrawn) window is an unmapped child of the root again,
            // and is found as Win32 finds hidden windows.
            const std::unordered_set<xcb_window_t> listed(out.begin(), out.end());
            std::vector<std::pair<xcb_window_t, xcb_get_window_attributes_cookie_t>> asks;
            for (int k = 0; k < n; ++k)
                if (!listed.count(v[k])) asks.emplace_back(v[k], xcb_get_window_attributes(xcb_, v[k]));
            for (auto& [w, cookie] : asks) {
                if (xcb_get_window_attributes_reply_t* a =
                        xcb_get_window_attributes_reply(xcb_, cookie, nullptr)) {
                    if (a->map_state == XCB_MAP_STATE_UNMAPPED && !a->override_redirect) out.push_back(w);
                    free(a);
                }
            }
        }
        free(r);
    }
    return out;
}

} // namespace kp::host::x11
