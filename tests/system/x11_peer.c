/* x11_peer.c - another X client for the display tests: it creates windows
 * and reports what it receives.
 *
 *   kp_x11_peer TITLE CLASS        one window; prints its id, then one line
 *                                  per key ("key KEYSYM-NAME STATE") and
 *                                  button ("button N X Y") it receives
 *   kp_x11_peer --many N PREFIX    N windows titled PREFIX0 .. PREFIX<N-1>;
 *                                  prints the id of the last one
 *
 * It runs until its standard input closes. */
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/select.h>
#include <unistd.h>

static Window make(Display* d, const char* title, const char* cls) {
    Window w = XCreateSimpleWindow(d, DefaultRootWindow(d), 10, 20, 200, 150, 0, 0, 0xFFFFFF);
    Atom net_name = XInternAtom(d, "_NET_WM_NAME", False), utf8 = XInternAtom(d, "UTF8_STRING", False);
    XChangeProperty(d, w, net_name, utf8, 8, PropModeReplace, (const unsigned char*)title, (int)strlen(title));
    XStoreName(d, w, title);
    XClassHint hint = {(char*)cls, (char*)cls};
    XSetClassHint(d, w, &hint);
    XSelectInput(d, w, KeyPressMask | ButtonPressMask);
    XMapWindow(d, w);
    return w;
}

int main(int argc, char** argv) {
    if (argc < 3) return 2;
    Display* d = XOpenDisplay(NULL);
    if (!d) return 3;
    Window last = 0;
    if (strcmp(argv[1], "--many") == 0 && argc >= 4) {
        int n = atoi(argv[2]);
        char title[256];
        for (int k = 0; k < n; ++k) {
            snprintf(title, sizeof title, "%s%d", argv[3], k);
            last = make(d, title, "KPPeer");
        }
    } else {
        last = make(d, argv[1], argv[2]);
    }
    XSync(d, False);
    printf("%lu\n", (unsigned long)last);
    fflush(stdout);
    const int xfd = ConnectionNumber(d);
    for (;;) {
        while (XPending(d)) {
            XEvent e;
            XNextEvent(d, &e);
            if (e.type == KeyPress) {
                KeySym sym = XLookupKeysym(&e.xkey, (e.xkey.state & ShiftMask) ? 1 : 0);
                if (IsModifierKey(sym)) continue;
                const char* name = XKeysymToString(sym);
                printf("key %s %u\n", name ? name : "?", e.xkey.state);
            } else if (e.type == ButtonPress) {
                printf("button %u %d %d\n", e.xbutton.button, e.xbutton.x_root, e.xbutton.y_root);
            }
            fflush(stdout);
        }
        fd_set fds;
        FD_ZERO(&fds);
        FD_SET(0, &fds);
        FD_SET(xfd, &fds);
        if (select(xfd + 1, &fds, NULL, NULL, NULL) < 0) break;
        if (FD_ISSET(0, &fds)) {
            char buf[64];
            if (read(0, buf, sizeof buf) <= 0) break;
        }
    }
    XCloseDisplay(d);
    return 0;
}
