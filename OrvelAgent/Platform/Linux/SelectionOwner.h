#pragma once

#include <xcb/xcb.h>

#include <cstddef>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "OrvelAgent/Platform/Linux/SelectionAtoms.h"
#include "OrvelKit/Base/SerialQueue.h"

namespace orvel {

// Gives the clipboard's text to whoever asks for it, for as long as it is ours, as ICCCM (section
// 2) wants it: in the usual forms, several at once (MULTIPLE), long text in pieces (INCR), each
// when the one before has been taken. A text that is being sent is sent to its end, whatever is
// on the clipboard meanwhile.
//
// On the queue of its connection.
class SelectionOwner {
public:
    // Longer text goes in pieces of this size, in bytes; a server that takes less gets less.
    static constexpr std::size_t maxPiece = 1024 * 1024;
    // A program that takes no piece for so long gets no more.
    static constexpr std::chrono::seconds patience{10};
    static constexpr std::size_t maxTransfers = 64;  // at a time; more programs are refused

    // `window` belongs to the connection and outlives this.
    SelectionOwner(SerialQueue& queue, X11Client& client, const SelectionAtoms& atoms,
                   xcb_window_t window);

    // False: somebody was faster. `time` is the server's of now. Throws X11Failure.
    bool own(std::shared_ptr<const std::string> text, xcb_timestamp_t time);
    void release() { text.reset(); }
    // nullptr: the clipboard is not ours.
    const std::shared_ptr<const std::string>& ownText() const { return text; }
    xcb_timestamp_t ownedSince() const { return since; }
    // Of an event about the clipboard's owner: it happened before the last own().
    bool isBefore(const xcb_generic_event_t& event) const;

    // Requests and what concerns the texts being sent; ignores all else. Throws X11Failure.
    void handle(const xcb_generic_event_t& event);
    std::size_t transfers() const { return sending.size(); }

private:
    struct Transfer {
        xcb_window_t requestor;
        xcb_atom_t property, type;
        std::shared_ptr<const std::string> text;
        std::size_t sent = 0;
        MonotonicTime deadline = {};  // for taking the last piece
        Timer alarm = {};
    };
    using Transfers = std::list<Transfer>;

    void answer(const xcb_selection_request_event_t& request);
    bool convert(xcb_window_t requestor, xcb_atom_t target, xcb_atom_t property);
    bool convertSeveral(xcb_window_t requestor, xcb_atom_t property);
    bool send(xcb_window_t requestor, xcb_atom_t property, xcb_atom_t type,
              std::shared_ptr<const std::string> bytes);
    void sendNextPiece(Transfers::iterator transfer);
    void waitFor(Transfers::iterator transfer);
    void setAlarm(Transfers::iterator transfer);
    void drop(Transfers::iterator transfer);
    std::vector<xcb_atom_t> targets() const;

    SerialQueue& queue;
    X11Client& client;
    const SelectionAtoms& atoms;
    const xcb_window_t window;
    const std::size_t piece;
    std::shared_ptr<const std::string> text;
    xcb_timestamp_t since = 0;
    std::uint32_t claim = 0;  // the number of the request that made it ours
    Transfers sending;
};

}  // namespace orvel
