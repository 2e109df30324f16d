/* x11_peer.c - another X client of the display tests, running until its stdin closes:
 *   TITLE CLASS       one window; prints its id, then "key KEYSYM STATE", "button N X Y", "release N X Y"
 *   --many N PREFIX   N windows PREFIX0 .. PREFIX<N-1>; prints the last one's id
 *   --tray            the notification area: prints its id, then "dock W", "message TEXT", "undock W" */
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/keysym.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static Window make(Display* d, const char* title, const char* cls) {
    Window w = XCreateSimpleWindow(d, DefaultRootWindow(d), 10, 20, 200, 150, 0, 0, 0xFFFFFF);
    Atom net_name = XInternAtom(d, "_NET_WM_NAME", False), utf8 = XInternAtom(d, "UTF8_STRING", False);
    XChangeProperty(d, w, net_name, utf8, 8, PropModeReplace, (const unsigned char*)title,
                    (int)strlen(title));
    XStoreName(d, w, title);
    XClassHint hint = {(char*)cls, (char*)cls};
    XSetClassHint(d, w, &hint);
    XSelectInput(d, w, KeyPressMask | ButtonPressMask | ButtonReleaseMask);
    XMapWindow(d, w);
    return w;
}

int main(int argc, char** argv) {
    if (argc < 3 && !(argc == 2 && strcmp(argv[1], "--tray") == 0)) return 2;
    Display* d = XOpenDisplay(NULL);
    if (!d) return 3;
    Window last = 0;
    Atom opcode = XInternAtom(d, "_NET_SYSTEM_TRAY_OPCODE", False);
    Atom data = XInternAtom(d, "_NET_SYSTEM_TRAY_MESSAGE_DATA", False);
    int tray = strcmp(argv[1], "--tray") == 0;
    char message[4096];
    long message_length = 0, message_have = 0;
    if (tray) {
        last = XCreateSimpleWindow(d, DefaultRootWindow(d), 0, 0, 100, 30, 0, 0, 0xFFFFFF);
        XSetSelectionOwner(d, XInternAtom(d, "_NET_SYSTEM_TRAY_S0", False), last, CurrentTime);
    } else if (strcmp(argv[1], "--many") == 0 && argc >= 4) {
        int n = atoi(argv[2]);
        char title[256];
        for (int k = 0; k < n; ++k) {
            snprintf(title, sizeof title, "%s%d", argv[3], k);
            last = make(d, title, "KPPeer");
        }
    } else {
        last = make(d, argv[1], argv[2]);
    }
    /* The keyboard map is loaded now, as toolkits do at start: Xlib would load it at the first key
     * and ask for the map's changes only then, and changes made in between would reach no one. */
    XKeysymToKeycode(d, XK_a);
    XSync(d, False);
    printf("%lu\n", (unsigned long)last);
    fflush(stdout);
    const int xfd = ConnectionNumber(d);
    for (;;) {
        while (XPending(d)) {
            XEvent e;
            XNextEvent(d, &e);
            if (e.type == MappingNotify) {
                XRefreshKeyboardMapping(&e.xmapping);
            } else if (e.type == KeyPress) {
                /* As clients do: through Xlib's copy of the map, refreshed on MappingNotify. */
                char text[16];
                KeySym sym = NoSymbol;
                XLookupString(&e.xkey, text, sizeof text, &sym, NULL);
                if (IsModifierKey(sym)) continue;
                const char* name = XKeysymToString(sym);
                printf("key %s %u\n", name ? name : "?", e.xkey.state);
            } else if (tray && e.type == ClientMessage && e.xclient.message_type == opcode) {
                if (e.xclient.data.l[1] == 0) {
                    Window icon = (Window)e.xclient.data.l[2];
                    XSelectInput(d, icon, StructureNotifyMask);
                    printf("dock %lu\n", (unsigned long)icon);
                } else if (e.xclient.data.l[1] == 1) {
                    message_length = e.xclient.data.l[3];
                    message_have = 0;
                }
            } else if (tray && e.type == ClientMessage && e.xclient.message_type == data) {
                for (int k = 0; k < 20 && message_have < message_length && message_have < 4095; ++k)
                    message[message_have++] = e.xclient.data.b[k];
                if (message_have == message_length) {
                    message[message_have] = 0;
                    printf("message %s\n", message);
                }
            } else if (tray && e.type == DestroyNotify) {
                printf("undock %lu\n", (unsigned long)e.xdestroywindow.window);
            } else if (e.type == ButtonPress || e.type == ButtonRelease) {
                printf("%s %u %d %d\n", e.type == ButtonPress ? "button" : "release", e.xbutton.button,
                       e.xbutton.x_root, e.xbutton.y_root);
            }
            fflush(stdout);
        }
        struct pollfd fds[2] = {{0, POLLIN, 0}, {xfd, POLLIN, 0}};
        char buf[64];
        if (poll(fds, 2, -1) < 0 || (fds[0].revents && read(0, buf, sizeof buf) <= 0)) break;
    }
    XCloseDisplay(d);
    return 0;
}
