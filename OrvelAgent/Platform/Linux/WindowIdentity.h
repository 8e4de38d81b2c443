#pragma once

#include <xcb/xcb.h>

#include <optional>
#include <string>
#include <vector>

namespace orvel {

class X11Connection;

// What a window says about the application that it belongs to; what it does not say is empty.
struct WindowIdentity {
    std::string applicationID;  // of GTK: such as "org.gnome.TextEditor"
    std::string desktopFile;    // as KDE or BAMF name it: an id, a file or a path
    std::string instance;       // WM_CLASS
    std::string className;      // the same
    std::string title;
};

class WindowIdentityReader {
public:
    explicit WindowIdentityReader(const X11Connection& x11);  // throws X11Failure
    // nullopt: there is no such window any more. Of a window without a class, what the window says
    // for which it is open. Throws X11Failure.
    std::optional<WindowIdentity> read(xcb_window_t window) const;

private:
    std::optional<WindowIdentity> readAlone(xcb_window_t window, xcb_window_t& openedFor) const;

    const X11Connection& x11;
    const std::vector<xcb_atom_t> properties;
};

}  // namespace orvel
