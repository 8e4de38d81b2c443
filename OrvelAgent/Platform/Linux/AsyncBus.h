#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "OrvelAgent/Platform/Linux/Bus.h"
#include "OrvelKit/Base/SerialQueue.h"
#include "OrvelKit/Base/UniqueFunction.h"

namespace orvel {

// What somebody on a bus tells all others. Belongs to the call that it is handed to.
struct BusSignal {
    const char* sender;  // unique name
    const char* path;
    const char* interface;
    const char* member;
    GVariant* body;  // a tuple, of whatever types the sender chose
};

// A connection on a queue: calls are sent without a wait and answered by a task of the queue. It
// needs no loop of GLib's, whose worker thread only hands messages over. Used and destroyed on the
// queue, owned by a shared_ptr. Callbacks may destroy it.
class AsyncBus : public std::enable_shared_from_this<AsyncBus> {
public:
    // Null when the call failed, was not answered in time or the connection is lost.
    using Answer = UniqueFunction<void(GVariant* answer)>;

    explicit AsyncBus(SerialQueue& queue);
    ~AsyncBus();
    AsyncBus(const AsyncBus&) = delete;
    AsyncBus& operator=(const AsyncBus&) = delete;

    // Set before open().
    std::function<void(const BusSignal&)> onSignal;
    std::function<void()> onClosed;  // lost; everything unanswered has been answered with null

    // Once. This alone waits, for the bus itself and at most `limit`. False: nobody is there.
    bool open(const std::string& address, Duration limit);
    bool isOpen() const;
    // Signals that match come to onSignal, until the end of the connection.
    void listen(const std::string& matchRule);
    // `arguments` is a tuple; a floating one is taken over. `mayStart`: a service that is not
    // running is started if the bus can do that.
    void call(const BusMethod& method, GVariant* arguments, Duration limit, Answer answer,
              bool mayStart = false);
    // Without an answer.
    void send(const BusMethod& method, GVariant* arguments);
    // Waits until what was sent has left this process, for goodbyes.
    void flush(Duration limit);

private:
    class Mailbox;
    struct Hangup;
    struct Waiting {
        Answer answer;
        Timer limit;
    };

    guint32 post(const BusMethod& method, GVariant* arguments, GDBusMessageFlags flags);
    void received(GDBusMessage& message);
    void answer(guint32 serial, GVariant* body);
    void watchForHangup();
    void closed();

    SerialQueue& queue;
    GObjectPtr<GDBusConnection> connection;
    std::shared_ptr<Mailbox> mailbox;
    guint filter = 0;
    std::unique_ptr<Hangup> hangup OWNED_BY(queue);
    std::map<guint32, Waiting> unanswered OWNED_BY(queue);  // by serial
};

}  // namespace orvel
