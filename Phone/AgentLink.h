#pragma once

#include <chrono>
#include <concepts>
#include <optional>
#include <stdexcept>
#include <string>
#include <variant>

#include "OrvelKit/Base/Clock.h"
#include "OrvelKit/Wire/Control.h"
#include "OrvelKit/Wire/Files.h"
#include "OrvelKit/Wire/Media.h"

namespace orvel::phone {

// A way to talk to an agent: a connection of one's own (PhoneConnection), or a share in the one of
// another process (SharedLink). Once there it ends once; the last event then is Closed, and what
// sends does nothing any more.
class AgentLink {
public:
    static constexpr Duration defaultTimeout = std::chrono::seconds(10);

    // Why there is no connection (any more).
    struct Closed {
        enum class Reason {
            noAddress,      // the host's name is not known
            notConnected,   // refused, unreachable, no answer in time: see detail
            closedByAgent,  // an orderly end
            reset,          // any other end; also of an agent that has not read everything
            nonsense,       // the agent sent what no agent sends: bad frame, bad seal, bad JSON
            timedOut,       // the agent's part of the handshake did not come in time
            closedHere,     // close(), abort()
        } reason;
        std::string detail;  // of the system or the decoder, for people; may be empty

        std::string describe() const;  // one sentence
        bool operator==(const Closed&) const = default;
    };

    // What arrived. A Frame is one that a phone does not expect: a handshake frame outside
    // secure(), or an inner frame of kind handshake or sealed.
    struct Event {
        using Case =
            std::variant<Control, VideoFormat, VideoFrame, AudioPacket, FileFrame, Frame, Closed>;
        MonotonicTime arrivedAt;  // when its last byte was read
        Case value;

        // T: one of the cases above, or one of Control's (Welcome, Control::Pong, ...). Null when
        // it is something else.
        template <class T>
        const T* as() const;

        // What an inner frame holds. Throws FramingError or ControlError.
        static Case decode(FrameKind kind, ByteView payload);
    };

    // A control that is longer than the way to the agent takes; nothing of it was sent.
    struct TooLong : std::length_error {
        TooLong() : std::length_error("too long for the connection") {}
    };

    virtual ~AgentLink() = default;

    // Throws TooLong.
    virtual void send(const Control& control) = 0;

    // The next event in order of arrival; nullopt when none came in time. After Closed: nullopt
    // at once.
    virtual std::optional<Event> next(Duration timeout) = 0;

    // The next event of type T (see Event::as), dropping all that came before it. nullopt when
    // none came in time or the connection has ended without one.
    template <class T>
    std::optional<T> waitFor(Duration timeout = defaultTimeout);
    // The same with a condition on the event.
    template <class T, class Condition>
    std::optional<T> waitFor(Duration timeout, Condition condition);

    // Present from the moment of the end on, whether its event has been taken or not.
    virtual std::optional<Closed> closed() const = 0;
};

template <class T>
const T* AgentLink::Event::as() const {
    if constexpr (std::same_as<T, Control> || std::same_as<T, VideoFormat> ||
                  std::same_as<T, VideoFrame> || std::same_as<T, AudioPacket> ||
                  std::same_as<T, FileFrame> || std::same_as<T, Frame> || std::same_as<T, Closed>) {
        return std::get_if<T>(&value);
    } else {
        const auto* control = std::get_if<Control>(&value);
        return control ? control->as<T>() : nullptr;
    }
}

template <class T, class Condition>
std::optional<T> AgentLink::waitFor(Duration timeout, Condition condition) {
    const MonotonicTime deadline = std::chrono::steady_clock::now() + timeout;
    while (auto event = next(deadline - std::chrono::steady_clock::now())) {
        if (const T* found = event->template as<T>(); found && condition(*found)) return *found;
    }
    return std::nullopt;
}

template <class T>
std::optional<T> AgentLink::waitFor(Duration timeout) {
    return waitFor<T>(timeout, [](const T&) { return true; });
}

}  // namespace orvel::phone
