#include "OrvelAgent/Platform/Linux/SelectionOwner.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "OrvelAgent/Platform/Linux/SelectionText.h"

namespace orvel {

namespace {

constexpr std::uint32_t maxPairs = 64;  // in one MULTIPLE

// What a request needs beside the property's bytes.
constexpr std::size_t requestOverhead = 64;

void replaceProperty(const X11Connection& x11, xcb_window_t window, xcb_atom_t property,
                     xcb_atom_t type, std::uint8_t format, std::size_t count, const void* values) {
    xcb_change_property(x11.get(), XCB_PROP_MODE_REPLACE, window, property, type, format,
                        static_cast<std::uint32_t>(count), values);
}

}  // namespace

SelectionOwner::SelectionOwner(SerialQueue& clientQueue, X11Client& x11Client,
                               const SelectionAtoms& names, xcb_window_t ownerWindow)
    : queue(clientQueue),
      client(x11Client),
      atoms(names),
      window(ownerWindow),
      piece(std::min<std::size_t>(
          maxPiece,
          std::size_t{xcb_get_maximum_request_length(client.x11().get())} * 4 - requestOverhead)) {}

bool SelectionOwner::own(std::shared_ptr<const std::string> newText, xcb_timestamp_t time) {
    const auto& x11 = client.x11();
    claim = xcb_set_selection_owner(x11.get(), window, atoms.clipboard, time).sequence;
    const auto answer = x11.reply<xcb_get_selection_owner_reply>(
        xcb_get_selection_owner(x11.get(), atoms.clipboard), "GetSelectionOwner");
    if (answer->owner != window) {
        release();
        return false;
    }
    text = std::move(newText);
    since = time;
    return true;
}

bool SelectionOwner::isBefore(const xcb_generic_event_t& event) const {
    // The numbers of requests go round.
    return static_cast<std::int32_t>(event.full_sequence - claim) < 0;
}

std::vector<xcb_atom_t> SelectionOwner::targets() const {
    std::vector<xcb_atom_t> list{atoms.targets,     atoms.multiple,   atoms.timestamp,
                                 atoms.saveTargets, atoms.utf8String, atoms.textPlainUtf8,
                                 atoms.text,        atoms.textPlain};
    if (isLatin1(*text)) list.push_back(XCB_ATOM_STRING);
    return list;
}

void SelectionOwner::handle(const xcb_generic_event_t& event) {
    switch (eventType(event)) {
        case XCB_SELECTION_REQUEST:
            return answer(reinterpret_cast<const xcb_selection_request_event_t&>(event));
        case XCB_PROPERTY_NOTIFY: {
            const auto& change = reinterpret_cast<const xcb_property_notify_event_t&>(event);
            if (change.state != XCB_PROPERTY_DELETE) return;
            const auto transfer = std::find_if(sending.begin(), sending.end(), [&](auto& each) {
                return each.requestor == change.window && each.property == change.atom;
            });
            if (transfer != sending.end()) sendNextPiece(transfer);
            return;
        }
        case XCB_DESTROY_NOTIFY: {
            const auto& gone = reinterpret_cast<const xcb_destroy_notify_event_t&>(event);
            sending.remove_if([&](auto& each) { return each.requestor == gone.window; });
            return;
        }
        default:
            return;
    }
}

void SelectionOwner::answer(const xcb_selection_request_event_t& request) {
    // Programs from before ICCCM name no property.
    const xcb_atom_t property = request.property == XCB_NONE ? request.target : request.property;
    const bool isOurs =
        text && request.selection == atoms.clipboard &&
        (request.time == XCB_CURRENT_TIME || static_cast<std::int32_t>(request.time - since) >= 0);
    bool isGiven = false;
    if (isOurs && request.target == atoms.multiple) {
        isGiven = request.property != XCB_NONE && convertSeveral(request.requestor, property);
    } else if (isOurs) {
        isGiven = convert(request.requestor, request.target, property);
    }
    xcb_selection_notify_event_t notice{};
    notice.response_type = XCB_SELECTION_NOTIFY;
    notice.time = request.time;
    notice.requestor = request.requestor;
    notice.selection = request.selection;
    notice.target = request.target;
    notice.property = isGiven ? property : xcb_atom_t{XCB_NONE};
    xcb_send_event(client.x11().get(), 0, request.requestor, XCB_EVENT_MASK_NO_EVENT,
                   reinterpret_cast<const char*>(&notice));
}

bool SelectionOwner::convert(xcb_window_t requestor, xcb_atom_t target, xcb_atom_t property) {
    const auto& x11 = client.x11();
    if (target == atoms.targets) {
        const auto list = targets();
        replaceProperty(x11, requestor, property, XCB_ATOM_ATOM, 32, list.size(), list.data());
        return true;
    }
    if (target == atoms.timestamp) {
        replaceProperty(x11, requestor, property, XCB_ATOM_INTEGER, 32, 1, &since);
        return true;
    }
    if (target == atoms.saveTargets) {
        replaceProperty(x11, requestor, property, atoms.null, 32, 0, nullptr);
        return true;
    }
    if (target == XCB_ATOM_STRING) {
        return send(requestor, property, target,
                    std::make_shared<const std::string>(latin1From(*text)));
    }
    if (target == atoms.text) return send(requestor, property, atoms.utf8String, text);
    if (target == atoms.utf8String || target == atoms.textPlainUtf8 || target == atoms.textPlain) {
        return send(requestor, property, target, text);
    }
    return false;
}

bool SelectionOwner::convertSeveral(xcb_window_t requestor, xcb_atom_t property) {
    const auto& x11 = client.x11();
    X11Message<xcb_get_property_reply_t> list;
    try {
        list = x11.reply<xcb_get_property_reply>(
            xcb_get_property(x11.get(), 0, requestor, property, XCB_GET_PROPERTY_TYPE_ANY, 0,
                             maxPairs * 2),
            "GetProperty");
    } catch (const X11Refusal&) {
        return false;  // it has gone
    }
    if (list->format != 32 || list->bytes_after > 0) return false;
    const auto* begin = static_cast<const xcb_atom_t*>(xcb_get_property_value(list.get()));
    std::vector<xcb_atom_t> pairs(begin, begin + list->value_len / 2 * 2);
    for (std::size_t i = 0; i < pairs.size(); i += 2) {
        const bool isGiven = pairs[i] != atoms.multiple && pairs[i + 1] != XCB_NONE &&
                             convert(requestor, pairs[i], pairs[i + 1]);
        if (!isGiven) pairs[i + 1] = XCB_NONE;
    }
    replaceProperty(x11, requestor, property, atoms.atomPair, 32, pairs.size(), pairs.data());
    return true;
}

bool SelectionOwner::send(xcb_window_t requestor, xcb_atom_t property, xcb_atom_t type,
                          std::shared_ptr<const std::string> bytes) {
    const auto& x11 = client.x11();
    sending.remove_if(
        [&](auto& each) { return each.requestor == requestor && each.property == property; });
    if (bytes->size() <= piece) {
        replaceProperty(x11, requestor, property, type, 8, bytes->size(), bytes->data());
        return true;
    }
    if (sending.size() >= maxTransfers) return false;
    // To learn when a piece is taken, and when the requestor goes.
    const std::uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE | XCB_EVENT_MASK_STRUCTURE_NOTIFY;
    xcb_change_window_attributes(x11.get(), requestor, XCB_CW_EVENT_MASK, &events);
    const auto atLeast = static_cast<std::uint32_t>(bytes->size());
    replaceProperty(x11, requestor, property, atoms.incr, 32, 1, &atLeast);
    sending.push_back({requestor, property, type, std::move(bytes)});
    waitFor(std::prev(sending.end()));
    return true;
}

void SelectionOwner::sendNextPiece(Transfers::iterator transfer) {
    const auto& whole = *transfer->text;
    const std::size_t begin = transfer->sent;
    const std::size_t end = pieceEnd(whole, begin, piece);
    replaceProperty(client.x11(), transfer->requestor, transfer->property, transfer->type, 8,
                    end - begin, whole.data() + begin);
    transfer->sent = end;
    // The empty piece says that this was all.
    if (begin == end) return drop(transfer);
    waitFor(transfer);
}

void SelectionOwner::waitFor(Transfers::iterator transfer) {
    transfer->deadline = queue.now() + patience;
    if (!transfer->alarm.isPending()) setAlarm(transfer);
}

// One for all pieces, which may follow each other quickly.
void SelectionOwner::setAlarm(Transfers::iterator transfer) {
    transfer->alarm = queue.after(transfer->deadline - queue.now(), [this, transfer] {
        if (queue.now() < transfer->deadline) return setAlarm(transfer);
        client.run([this, transfer] { drop(transfer); });
    });
}

void SelectionOwner::drop(Transfers::iterator transfer) {
    const xcb_window_t requestor = transfer->requestor;
    sending.erase(transfer);
    const bool hasMore = std::any_of(sending.begin(), sending.end(),
                                     [&](auto& each) { return each.requestor == requestor; });
    if (hasMore) return;
    const std::uint32_t events = XCB_EVENT_MASK_NO_EVENT;
    xcb_change_window_attributes(client.x11().get(), requestor, XCB_CW_EVENT_MASK, &events);
}

}  // namespace orvel
