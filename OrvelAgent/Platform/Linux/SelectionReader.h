#pragma once

#include <xcb/xcb.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "OrvelAgent/Platform/Linux/HelperWindow.h"
#include "OrvelAgent/Platform/Linux/SelectionAtoms.h"

namespace orvel {

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

    bool isDecided() const { return state == State::passingOver || state == State::over; }
    // Nothing more comes. What is too long is taken from its owner all the same once that has begun
    // to send it: there are programs that can give nothing else before.
    bool isOver() const { return state == State::over; }
    // Once decided; nullopt: there is no text, or it is too long.
    std::optional<std::string> takeText() { return std::move(result); }
    // Grows with everything that comes.
    unsigned progress() const { return answers; }

    // For a reading that is given up: an owner that is only slow may still write there, and not
    // every program survives that its reader's window is gone.
    HelperWindow takeWindow() { return std::move(window); }

private:
    enum class State { askedForTargets, askedForText, receivingPieces, passingOver, over };

    void ask(xcb_atom_t target);
    void askForNext();
    void finish(std::optional<std::string> text);
    void finishWithBytes();
    void answered(const xcb_selection_notify_event_t& answer);
    void readTargets();
    void readText();
    void readPiece();
    void passOver();
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
