// display_x11.cpp - the display over X11.
#include "display.h"

namespace kp::host {

std::unique_ptr<Display> open_x11_display(const std::string&, std::string* why) {
    if (why) *why = "no X11 support";
    return nullptr;
}

} // namespace kp::host
