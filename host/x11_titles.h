// x11_titles.h - the titles and classes of the top-level windows, kept over
// an XCB connection of their own that follows their changes, for the window
// search: a lookup costs one round trip however many windows there are.
#pragma once

#include <xcb/xcb.h>

#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace kp::host::x11 {

// A title or class as compared: each character upper-cased (simple case
// mapping), as Win32 compares window titles and class names.
std::u16string folded(std::string_view utf8_text);

class TitleCache {
  public:
    // Reads a title property's bytes of the given type as UTF-8.
    using TitleReader = std::function<std::string(xcb_atom_t type, std::string_view bytes)>;

    // Takes the connection over (closed at destruction).
    TitleCache(xcb_connection_t* xcb, xcb_window_t root, xcb_atom_t client_list, xcb_atom_t net_wm_name,
               TitleReader read_title);
    ~TitleCache();
    TitleCache(const TitleCache&) = delete;
    TitleCache& operator=(const TitleCache&) = delete;

    // The first top-level window whose folded title is `title` and whose
    // instance or class name is `class_name` (null: any); 0 for none.  A
    // lookup asks the server for the window list only (after which every
    // change made before it has arrived as an event), reads again the
    // windows whose title or class changed and the new ones, all at once,
    // and compares in memory.
    xcb_window_t find(const std::u16string* title, const std::u16string* class_name);

  private:
    struct Cached {
        std::u16string title, instance, cls; // folded
        bool fresh = false;
    };
    void refresh(const std::vector<xcb_window_t>& list);
    bool text_reply(xcb_get_property_cookie_t cookie, std::string& out, xcb_atom_t& type, bool* gone);
    std::vector<xcb_window_t> top_level_windows();

    xcb_connection_t* xcb_;
    xcb_window_t root_;
    xcb_atom_t client_list_, net_wm_name_;
    TitleReader read_title_;
    std::mutex mutex_;
    std::unordered_map<xcb_window_t, Cached> cache_;
};

} // namespace kp::host::x11
