#include "OrvelAgent/Platform/Linux/X11Clipboard.h"

#include <xcb/xfixes.h>

#include <algorithm>
#include <deque>
#include <optional>
#include <utility>

#include "OrvelAgent/Platform/Linux/HelperWindow.h"
#include "OrvelAgent/Platform/Linux/SelectionAtoms.h"
#include "OrvelAgent/Platform/Linux/SelectionOwner.h"
#include "OrvelAgent/Platform/Linux/SelectionReader.h"

namespace orvel {

namespace {

// Of readings that were given up.
constexpr std::size_t maxOldWindows = 8;

}  // namespace

struct X11Clipboard::Reading {
    std::size_t maxBytes;
    Completion completion;                       // until it is called
    std::optional<SelectionReader> reader = {};  // once it is its turn
};

struct X11Clipboard::Session {
    Session(SerialQueue& queue, X11Client& client)
        : atoms(client.x11()), window(client.x11()), owner(queue, client, atoms, window.id()) {
        const auto& x11 = client.x11();
        const auto* xfixes = x11.extension(xcb_xfixes_id);
        if (!xfixes) throw X11Failure("the X server lacks XFIXES");
        ownerEvent = xfixes->first_event + XCB_XFIXES_SELECTION_NOTIFY;
        x11.reply<xcb_xfixes_query_version_reply>(xcb_xfixes_query_version(x11.get(), 5, 0),
                                                  "XFixesQueryVersion");
        xcb_xfixes_select_selection_input(
            x11.get(), window.id(), atoms.clipboard,
            XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER |
                XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_WINDOW_DESTROY |
                XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_CLIENT_CLOSE);
    }

    const SelectionAtoms atoms;
    HelperWindow window;
    SelectionOwner owner;
    int ownerEvent = 0;
    // The first one is under way. One after the other: not every owner can send several long texts
    // at once.
    std::deque<Reading> readings;
    MonotonicTime patienceEnds, readingEnds;  // of that one, at the latest
    Timer alarm;
    std::deque<HelperWindow> oldWindows;
    bool isHandedOver = false;
};

X11Clipboard::X11Clipboard(SerialQueue& clipboardQueue, const std::string& display,
                           std::function<void(std::uint64_t)> copyHandler)
    : queue(clipboardQueue), onCopy(std::move(copyHandler)) {
    queue.assertCurrent();
    client = std::make_shared<X11Client>(queue, display,
                                         X11Client::Handlers{[this] {
                                                                 queue.assertCurrent();
                                                                 beginSession();
                                                             },
                                                             [this](const auto& event) {
                                                                 queue.assertCurrent();
                                                                 handle(event);
                                                             },
                                                             [this] {
                                                                 queue.assertCurrent();
                                                                 endSession();
                                                             }});
    client->start();
}

X11Clipboard::~X11Clipboard() {
    queue.assertCurrent();
    endSession();
    client->end();
}

void X11Clipboard::beginSession() {
    session = std::make_unique<Session>(queue, *client);
    if (unclaimed) claim();
}

void X11Clipboard::endSession() {
    if (!session) return;
    giveUpReadings();
    session.reset();
}

void X11Clipboard::write(std::string text) {
    queue.assertCurrent();
    ++writes;
    unclaimed = std::make_shared<const std::string>(std::move(text));
    client->run([this] {
        queue.assertCurrent();
        claim();
    });
}

void X11Clipboard::claim() {
    const auto time = serverTime();
    if (!session->owner.own(std::exchange(unclaimed, nullptr), time)) onCopy(writes);
}

// The time of an event is the only one that the server tells.
xcb_timestamp_t X11Clipboard::serverTime() {
    const xcb_window_t window = session->window.id();
    const xcb_atom_t property = session->atoms.time;
    xcb_change_property(client->x11().get(), XCB_PROP_MODE_APPEND, window, property,
                        XCB_ATOM_INTEGER, 32, 0, nullptr);
    const auto event = client->await([&](const xcb_generic_event_t& each) {
        if (eventType(each) != XCB_PROPERTY_NOTIFY) return false;
        const auto& change = reinterpret_cast<const xcb_property_notify_event_t&>(each);
        return change.window == window && change.atom == property;
    });
    return reinterpret_cast<const xcb_property_notify_event_t&>(*event).time;
}

void X11Clipboard::handle(const xcb_generic_event_t& event) {
    if (eventType(event) == session->ownerEvent) return ownerChanged(event);
    if (eventType(event) == XCB_SELECTION_NOTIFY) {
        const auto& answer = reinterpret_cast<const xcb_selection_notify_event_t&>(event);
        if (answer.requestor == session->window.id()) {
            session->isHandedOver |= answer.selection == session->atoms.clipboardManager;
            return;
        }
    }
    if (!handleForReading(event)) session->owner.handle(event);
}

// False: the event is not for the reading that is under way.
bool X11Clipboard::handleForReading(const xcb_generic_event_t& event) {
    if (session->readings.empty()) return false;
    auto& reading = session->readings.front();
    auto& reader = *reading.reader;
    const auto progress = reader.progress();
    if (!reader.handle(event)) return false;
    if (reader.isDecided() && reading.completion) {
        std::exchange(reading.completion, nullptr)(reader.takeText());
    }
    if (reader.isOver()) {
        session->readings.pop_front();
        beginReading();
    } else if (reader.progress() != progress) {
        waitForReading();
    }
    return true;
}

void X11Clipboard::ownerChanged(const xcb_generic_event_t& event) {
    const auto& change = reinterpret_cast<const xcb_xfixes_selection_notify_event_t&>(event);
    auto& owner = session->owner;
    if (change.owner == session->window.id() || owner.isBefore(event)) return;
    owner.release();
    if (change.subtype != XCB_XFIXES_SELECTION_EVENT_SET_SELECTION_OWNER) {
        // It has gone, and nobody answers its readers any more.
        giveUpReadings();
    } else if (change.owner != XCB_NONE) {
        onCopy(writes);
    }
}

void X11Clipboard::read(std::size_t maxBytes, Completion completion) {
    queue.assertCurrent();
    const auto& own = session ? session->owner.ownText() : unclaimed;
    if (own) {
        if (own->size() > maxBytes) return completion(std::nullopt);
        return completion(*own);
    }
    if (!session) return completion(std::nullopt);
    session->readings.push_back({maxBytes, std::move(completion)});
    if (session->readings.size() > 1) return;
    client->run([this] {
        queue.assertCurrent();
        beginReading();
    });
}

void X11Clipboard::beginReading() {
    session->alarm.cancel();
    if (session->readings.empty()) return;
    auto& reading = session->readings.front();
    const auto time = serverTime();
    reading.reader.emplace(client->x11(), session->atoms, time, reading.maxBytes);
    session->readingEnds = queue.now() + readLimit;
    waitForReading();
}

void X11Clipboard::waitForReading() {
    session->patienceEnds = std::min(queue.now() + readPatience, session->readingEnds);
    if (!session->alarm.isPending()) setAlarm();
}

// One for all pieces, which may follow each other quickly.
void X11Clipboard::setAlarm() {
    session->alarm = queue.after(session->patienceEnds - queue.now(), [this] {
        queue.assertCurrent();
        if (queue.now() < session->patienceEnds) return setAlarm();
        client->run([this] {
            queue.assertCurrent();
            giveUpReadings();
        });
    });
}

// All of them wait for the same owner.
void X11Clipboard::giveUpReadings() {
    session->alarm.cancel();
    for (auto& reading : std::exchange(session->readings, {})) {
        if (reading.reader) session->oldWindows.push_back(reading.reader->takeWindow());
        if (reading.completion) reading.completion(std::nullopt);
    }
    while (session->oldWindows.size() > maxOldWindows)
        session->oldWindows.pop_front();
}

void X11Clipboard::handOver(Duration limit) {
    queue.assertCurrent();
    if (!session || !session->owner.ownText()) return;
    bool isAsked = false;
    client->run([&] {
        queue.assertCurrent();
        const auto& x11 = client->x11();
        const auto& atoms = session->atoms;
        const auto manager = x11.reply<xcb_get_selection_owner_reply>(
            xcb_get_selection_owner(x11.get(), atoms.clipboardManager), "GetSelectionOwner");
        if (manager->owner == XCB_NONE) return;
        const xcb_window_t window = session->window.id();
        xcb_change_property(x11.get(), XCB_PROP_MODE_REPLACE, window, atoms.transfer, XCB_ATOM_ATOM,
                            32, 1, &atoms.utf8String);
        xcb_convert_selection(x11.get(), window, atoms.clipboardManager, atoms.saveTargets,
                              atoms.transfer, serverTime());
        isAsked = true;
    });
    if (!isAsked) return;
    client->serveUntil(
        [this] {
            queue.assertCurrent();
            return !session || session->isHandedOver;
        },
        limit);
}

}  // namespace orvel
