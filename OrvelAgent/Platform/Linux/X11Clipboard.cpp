#include "OrvelAgent/Platform/Linux/X11Clipboard.h"

#include <xcb/xfixes.h>

#include <algorithm>
#include <deque>
#include <list>
#include <utility>

#include "OrvelAgent/Platform/Linux/SelectionAtoms.h"
#include "OrvelAgent/Platform/Linux/SelectionOwner.h"
#include "OrvelAgent/Platform/Linux/SelectionReader.h"

namespace orvel {

namespace {

// Of readings that were given up.
constexpr std::size_t maxOldWindows = 8;

}  // namespace

struct X11Clipboard::Reading {
    std::uint64_t number;
    SelectionReader reader;
    Completion completion;
    MonotonicTime deadline;
    Timer patience = {};
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
    std::list<Reading> readings;
    std::uint64_t lastReading = 0;
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
    giveUpAll();
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
    auto& readings = session->readings;
    for (auto reading = readings.begin(); reading != readings.end(); ++reading) {
        const auto progress = reading->reader.progress();
        if (!reading->reader.handle(event)) continue;
        if (reading->reader.isOver()) {
            Reading finished = std::move(*reading);
            readings.erase(reading);
            finished.completion(finished.reader.takeText());
        } else if (reading->reader.progress() != progress) {
            waitFor(*reading, std::min<Duration>(readPatience, reading->deadline - queue.now()));
        }
        return;
    }
    session->owner.handle(event);
}

void X11Clipboard::ownerChanged(const xcb_generic_event_t& event) {
    const auto& change = reinterpret_cast<const xcb_xfixes_selection_notify_event_t&>(event);
    auto& owner = session->owner;
    if (change.owner == session->window.id() || owner.isBefore(event)) return;
    owner.release();
    if (change.subtype != XCB_XFIXES_SELECTION_EVENT_SET_SELECTION_OWNER) {
        // It has gone, and nobody answers its readers any more.
        giveUpAll();
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
    bool isBegun = false;
    client->run([&] {
        queue.assertCurrent();
        beginReading(maxBytes, completion);
        isBegun = true;
    });
    if (!isBegun) completion(std::nullopt);
}

void X11Clipboard::beginReading(std::size_t maxBytes, const Completion& completion) {
    const auto time = serverTime();
    session->readings.push_back({++session->lastReading,
                                 SelectionReader(client->x11(), session->atoms, time, maxBytes),
                                 completion, queue.now() + readLimit});
    waitFor(session->readings.back(), readPatience);
}

void X11Clipboard::waitFor(Reading& reading, Duration limit) {
    reading.patience = queue.after(limit, [this, number = reading.number] {
        queue.assertCurrent();
        client->run([this, number] {
            queue.assertCurrent();
            giveUp(number);
        });
    });
}

void X11Clipboard::giveUp(std::uint64_t number) {
    auto& readings = session->readings;
    const auto reading = std::find_if(readings.begin(), readings.end(),
                                      [&](const auto& each) { return each.number == number; });
    if (reading == readings.end()) return;
    session->oldWindows.push_back(reading->reader.takeWindow());
    if (session->oldWindows.size() > maxOldWindows) session->oldWindows.pop_front();
    const auto completion = std::move(reading->completion);
    readings.erase(reading);
    completion(std::nullopt);
}

void X11Clipboard::giveUpAll() {
    while (!session->readings.empty())
        giveUp(session->readings.front().number);
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
