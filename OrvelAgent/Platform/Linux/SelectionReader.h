#pragma once

#include <xcb/xcb.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "OrvelAgent/Platform/Linux/SelectionAtoms.h"

namespace orvel {

// A window that nobody sees, to receive and to be asked with; gone with the object, as long as the
// connection is.
class HelperWindow {
public:
    explicit HelperWindow(const X11Connection& x11);
    HelperWindow(HelperWindow&& other) noexcept;
    HelperWindow& operator=(HelperWindow&& other) noexcept;
    ~HelperWindow();
    xcb_window_t id() const { return window; }

private:
    xcb_connection_t* connection;
    xcb_window_t window;
};

// One reading of the clipboard as text, by asking its owner: which forms there are, then for the
// best of them, in pieces when it is sent so (INCR). Each has a window of its own, so that several
// do not meet and what comes after the end meets nothing.
class SelectionReader {
public:
    // Asks. `time` is the server's of now.
    SelectionReader(const X11Connection& x11, const SelectionAtoms& atoms, xcb_timestamp_t time,
                    std::size_t maxBytes);

    // False: the event is somebody else's. Throws X11Failure.
    bool handle(const xcb_generic_event_t& event);

    bool isOver() const { return state == State::over; }
    // Once over; nullopt: there is no text, or it is too long.
    std::optional<std::string> takeText() { return std::move(result); }
    // Grows with everything that comes.
    unsigned progress() const { return answers; }

    // For a reading that is given up: an owner that is only slow may still write there, and not
    // every program survives that its reader's window is gone.
    HelperWindow takeWindow() { return std::move(window); }

private:
    enum class State { askedForTargets, askedForText, receivingPieces, over };

    void ask(xcb_atom_t target);
    void askForNext();
    void finish(std::optional<std::string> text);
    void answered(const xcb_selection_notify_event_t& answer);
    void readTargets();
    void readText();
    void readPiece();
    std::size_t sizeOfProperty(xcb_atom_t& type) const;
    bool append();

    const X11Connection& x11;
    const SelectionAtoms& atoms;
    const xcb_timestamp_t time;
    const std::size_t maxBytes;
    HelperWindow window;
    State state = State::askedForTargets;
    std::vector<xcb_atom_t> wanted;  // still to be asked for, the next one last
    xcb_atom_t type = XCB_NONE;      // of what arrives
    std::string bytes;
    std::optional<std::string> result;
    unsigned answers = 0;
};

}  // namespace orvel
