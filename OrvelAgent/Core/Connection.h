#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "OrvelKit/Base/Bytes.h"
#include "OrvelKit/Base/UniqueFunction.h"

namespace orvel {

// An accepted byte-stream connection. Belongs to one queue: every call is made there and every
// completion is called there, never from inside the call that asked for it. No completion is
// called after cancel() or finish().
class Connection {
public:
    static constexpr std::size_t maxReceive = 65'536;

    virtual ~Connection() = default;

    // One receive at a time. The completion gets 1 to maxReceive bytes, valid during the call, or
    // nullopt when the connection has ended or failed.
    virtual void receive(UniqueFunction<void(std::optional<ByteView>)> completion) = 0;

    // One send at a time, of bytes that stay valid until the completion, which says whether the
    // system took all of them. Waits for the socket to be writable before each write, so that
    // what is not yet sent stays with the caller.
    virtual void send(ByteView bytes, UniqueFunction<void(bool)> completion) = 0;

    // Ends it at once; nothing more is sent. May be called again.
    virtual void cancel() = 0;
    // Ends it so that the peer still reads what send() has completed.
    virtual void finish() = 0;

    // The peer's address without a port; an IPv4 peer on a dual-stack socket in IPv4 form.
    virtual std::string remoteAddress() const = 0;
};

// Accepts connections on one TCP port. Belongs to the same queue as its connections.
class Listener {
public:
    struct Handlers {
        std::function<void(std::unique_ptr<Connection>)> onConnection;
        std::function<void(std::string description)> onFailed;  // later failure; final
    };
    struct Result {
        std::uint16_t port = 0;  // the real one; 0: it failed
        std::string error;       // then what the system said
    };

    virtual ~Listener() = default;
    // Port 0 takes any free one. An empty address means every address of both families.
    virtual Result listen(const std::string& address, std::uint16_t port, Handlers handlers) = 0;
    virtual void stop() = 0;
};

}  // namespace orvel
