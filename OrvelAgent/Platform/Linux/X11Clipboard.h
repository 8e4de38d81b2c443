#pragma once

#include <xcb/xcb.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "OrvelAgent/Platform/Linux/X11Client.h"
#include "OrvelKit/Base/SerialQueue.h"

namespace orvel {

// What X calls the selection CLIPBOARD, by a connection of its own: who takes it, reading it,
// owning it. PRIMARY, which is whatever was marked last, is nobody's copy and left alone.
//
// Made, used and destroyed on the queue. Without a server there is nothing to read, and what is
// written waits for one.
class X11Clipboard {
public:
    // An owner that gives nothing for so long, or not all in this time, is not waited for.
    static constexpr std::chrono::seconds readPatience{3};
    static constexpr std::chrono::seconds readLimit{10};

    using Completion = std::function<void(std::optional<std::string>)>;

    // `onCopy` is told of each other program that takes the clipboard from now on, with the number
    // of write() calls before that, and when a write() came too late to get it.
    X11Clipboard(SerialQueue& queue, const std::string& display,
                 std::function<void(std::uint64_t writes)> onCopy);
    ~X11Clipboard();
    X11Clipboard(const X11Clipboard&) = delete;
    X11Clipboard& operator=(const X11Clipboard&) = delete;

    void write(std::string text);
    // See Pasteboard::readString(); `completion` may be called at once.
    void read(std::size_t maxBytes, Completion completion);
    // Leaves a text of ours to the desktop's clipboard manager, if there is one, which outlives
    // this program. Takes no longer than `limit`. To be called last.
    void handOver(Duration limit);

private:
    struct Session;
    struct Reading;

    void beginSession() RUNS_ON(queue);
    void endSession() RUNS_ON(queue);
    void claim() RUNS_ON(queue);
    xcb_timestamp_t serverTime() RUNS_ON(queue);
    void handle(const xcb_generic_event_t& event) RUNS_ON(queue);
    void ownerChanged(const xcb_generic_event_t& event) RUNS_ON(queue);
    bool handleForReading(const xcb_generic_event_t& event) RUNS_ON(queue);
    void beginReading() RUNS_ON(queue);
    void waitForReading() RUNS_ON(queue);
    void setAlarm() RUNS_ON(queue);
    void giveUpReadings() RUNS_ON(queue);

    SerialQueue& queue;
    const std::function<void(std::uint64_t)> onCopy;
    std::uint64_t writes OWNED_BY(queue) = 0;
    std::shared_ptr<const std::string> unclaimed OWNED_BY(queue);  // waits for a server
    std::shared_ptr<X11Client> client OWNED_BY(queue);
    std::unique_ptr<Session> session OWNED_BY(queue);  // while there is a server
};

}  // namespace orvel
