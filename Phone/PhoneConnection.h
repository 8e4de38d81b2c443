#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "OrvelKit/Base/SerialQueue.h"
#include "OrvelKit/Secure/SecureHandshake.h"
#include "OrvelKit/Wire/Control.h"
#include "Phone/AgentLink.h"

namespace orvel::phone {

class PhoneTransport;

// The phone's end of one connection to an agent: TCP, handshake, sealed frames. Every call blocks
// at most for the time it is given and may come from any thread; what arrives is read on a thread
// of its own and waits in a queue until next() or waitFor() takes it. While 64 MiB wait there
// untaken, or 2 MiB of files, nothing more is read.
//
//     PhoneConnection phone(identity);
//     if (!phone.connect("127.0.0.1", port) || !phone.secure()) return phone.closed()->describe();
//     phone.code();                                 // compare with what the computer shows
//     phone.send({phone.hello("Phone", "123456")});
//     const auto welcome = phone.waitFor<Welcome>(5s);
//
// Once connected, it ends once: by close(), by the agent, or by a failure. The queue's last event
// then is Closed. Calls that send do nothing any more.
//
// A second set of calls misbehaves on purpose, for tests of what an agent bears.
class PhoneConnection : public AgentLink {
public:
    // Counted since connect(); frames as they are inside the seal.
    struct Counts {
        std::uint64_t bytesReceived = 0, bytesSent = 0;  // on the wire
        std::uint64_t controls = 0, videoFormats = 0, videoFrames = 0, keyframes = 0,
                      audioPackets = 0, fileFrames = 0;
        std::uint64_t videoBytes = 0;  // payloads of videoFrame
    };

    explicit PhoneConnection(Identity identity);
    ~PhoneConnection() override;  // close()
    PhoneConnection(const PhoneConnection&) = delete;
    PhoneConnection& operator=(const PhoneConnection&) = delete;

    // Once, before anything else. `receiveBuffer`: bytes for the kernel's receive buffer, 0 for
    // the system's own choice. False: see closed(). (A host name's look-up that takes longer than
    // `timeout` cannot be called back: the destructor waits for it.)
    bool connect(const std::string& host, std::uint16_t port, Duration timeout = defaultTimeout,
                 int receiveBuffer = 0);

    // Runs the handshake; once. False: see closed(). With `withholdReveal` the third message does
    // not leave yet, but with whatever is sent next, in one write.
    bool secure(Duration timeout = defaultTimeout, bool withholdReveal = false);

    // Known once secure() has succeeded; else empty.
    std::string code() const;     // six digits, to compare with those that the computer shows
    std::string agentID() const;  // the agent's device ID
    Bytes agentKey() const;

    MonotonicTime connectStartedAt() const;
    MonotonicTime connectedAt() const;  // the epoch while not connected

    // The agent was reached at one of this machine's own addresses, so that its frame times can be
    // compared with this machine's clock. False while not connected.
    bool isSameMachine() const;

    // A hello as this phone has to say it; change it at will before sending it.
    Hello hello(std::string deviceName, std::optional<std::string> pin = {}) const;

    // Queues one sealed control; nothing before secure() has succeeded.
    void send(const Control& control) override;

    std::optional<Event> next(Duration timeout) override;
    std::optional<Closed> closed() const override;
    // Waits for it, dropping all other events.
    std::optional<Closed> waitClosed(Duration timeout = defaultTimeout);

    // Ends the connection once what is queued has left, at the latest after `patience`; what the
    // agent has sent meanwhile is lost.
    void close(Duration patience = std::chrono::seconds(1));

    Counts counts() const;
    const Identity& identity() const { return ownIdentity; }

    // --- For tests that misbehave ---

    void sendRaw(ByteView bytes);                      // as they are, at any time
    void sendFrame(FrameKind kind, ByteView payload);  // an outer frame, not sealed
    void sendInner(FrameKind kind, ByteView payload);  // an inner frame, sealed
    void sendSealed(ByteView plaintext);               // any plaintext in one box
    // A box without its frame, not sent; it takes its place in the counters. After secure() only.
    Bytes seal(ByteView plaintext);
    // While paused nothing is read from the socket, so that the agent's sends come to a halt; the
    // agent's end goes unnoticed, too.
    void pauseReading(bool paused);
    // Waits until all that was sent is in the kernel's hands; false: not in time, or not at all.
    bool flush(Duration timeout = defaultTimeout);
    void shutdownSending();  // after what is queued the agent reads an end; reading goes on
    void abort();            // an end by reset; unsent bytes are dropped

private:
    const Identity ownIdentity;
    const std::unique_ptr<SerialQueue> queue;
    const std::shared_ptr<PhoneTransport> transport;
};

}  // namespace orvel::phone
