#pragma once

#include <gtest/gtest.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "OrvelKit/Secure/SecureHandshake.h"
#include "OrvelKit/Wire/Control.h"
#include "OrvelKit/Wire/Framing.h"
#include "OrvelKit/Wire/Media.h"

namespace orvel::phone {

// The other end of a phone's connection, as a script of blocking calls. Each gives up after 20 s;
// that, and the end of the connection, throws Gone, which ends the script.
class AgentEnd {
public:
    struct Gone : std::runtime_error {
        using std::runtime_error::runtime_error;
    };

    AgentEnd(boost::asio::ip::tcp::socket socket, Identity agentIdentity)
        : stream(std::move(socket)), identity(std::move(agentIdentity)) {
        stream.socket().set_option(boost::asio::ip::tcp::no_delay(true));
    }

    void sendRaw(ByteView bytes) {
        stream.clear();  // the phone may have ended its sending only
        stream.expires_after(limit);
        stream.write(reinterpret_cast<const char*>(bytes.data()),
                     static_cast<std::streamsize>(bytes.size()));
        stream.flush();
        if (!stream) throw Gone("the phone does not take it");
    }
    void sendFrame(FrameKind kind, ByteView payload) { sendRaw(Framing::encode(kind, payload)); }
    void send(FrameBuffer frame) { sendRaw(session->sealFrame(frame)); }
    void send(const Control& control) { send(FrameBuffer::control(control)); }
    void sendSealed(ByteView plaintext) { sendFrame(FrameKind::sealed, session->seal(plaintext)); }

    Frame receiveFrame() {
        std::uint8_t header[Frame::headerLength];
        receive(header);
        Frame frame{static_cast<FrameKind>(header[0]), Bytes(loadBE32(header + 1))};
        receive(frame.payload);
        return frame;
    }
    // The plaintext of the next sealed frame.
    Bytes receiveSealed() {
        const Frame frame = receiveFrame();
        if (frame.kind != FrameKind::sealed) throw Gone("a frame that is not sealed");
        return session->open(frame.payload);
    }
    Control receiveControl() {
        for (const Frame& frame : inner.feed(receiveSealed())) {
            return Framing::decodeControl(frame.payload);
        }
        throw Gone("no whole control in one box");
    }
    template <class T>
    T receive() {
        const Control control = receiveControl();
        if (!control.as<T>()) throw Gone("another control: " + control.toJson());
        return *control.as<T>();
    }
    void waitForEnd() {
        std::uint8_t byte;
        for (;;)
            receive({&byte, 1});
    }

    // The agent's part of the handshake.
    void secure() {
        SecureHandshake::Responder responder(identity);
        sendFrame(FrameKind::handshake, responder.receive(receiveFrame().payload));
        auto result = responder.finish(receiveFrame().payload);
        session = std::move(result.session);
        phoneKey = result.peerKey;
        code = result.code;
    }
    Welcome welcome() const {
        Welcome welcome;
        welcome.macName = "Desk";
        welcome.screenWidth = 320;
        welcome.screenHeight = 240;
        welcome.videoWidth = 320;
        welcome.videoHeight = 240;
        welcome.agentKey = identity.publicKey();
        welcome.displays = {{1, "Left", 320, 240}, {2, "Right", 640, 480}};
        welcome.displayID = 1;
        welcome.protocolVersion = 2;
        welcome.agentVersion = "0.1.0 (1)";
        return welcome;
    }

    // Admits a phone that will only send controls.
    void admit() {
        secure();
        receive<Hello>();
        send({welcome()});
        if (receive<Control::Audio>().on) throw Gone("who controls does not listen");
    }
    // What the phone sends until it goes; pings are answered as they come.
    void record(std::vector<Control>& controls) {
        for (;;) {
            const Control control = receiveControl();
            if (const auto* ping = control.as<Control::Ping>()) {
                send({Control::Pong{ping->value}});
            } else {
                controls.push_back(control);
            }
        }
    }

    boost::asio::ip::tcp::iostream stream;
    const Identity identity;
    std::unique_ptr<SecureSession> session;
    Bytes phoneKey;
    std::string code;

private:
    static constexpr auto limit = std::chrono::seconds(20);

    void receive(std::span<std::uint8_t> to) {
        stream.expires_after(limit);
        stream.read(reinterpret_cast<char*>(to.data()), static_cast<std::streamsize>(to.size()));
        if (!stream) throw Gone("the phone has gone");
    }

    FrameParser inner;
};

// Listens on a free loopback port and runs the script for one connection after the other. Declared
// before the phones that connect to it, so that they are gone when it waits for its script.
class AgentForTests {
public:
    using Script = std::function<void(AgentEnd&)>;

    explicit AgentForTests(Script agentScript, Identity agentIdentity = {PrivateKey::generate()},
                           std::uint16_t port = 0)
        : identity(std::move(agentIdentity)),
          script(std::move(agentScript)),
          acceptor(context, {boost::asio::ip::address_v4::loopback(), port}) {
        accept();
        thread = std::thread([this] { context.run(); });
    }
    ~AgentForTests() { finish(); }

    // After that, what the scripts have written may be read; none runs any more.
    void finish() {
        if (!thread.joinable()) return;
        context.stop();
        thread.join();
    }

    std::uint16_t port() const { return acceptor.local_endpoint().port(); }
    std::string deviceID() const { return identity.fingerprint(); }

    const Identity identity;

private:
    void accept() {
        acceptor.async_accept([this](auto error, boost::asio::ip::tcp::socket socket) {
            if (error) return;
            AgentEnd end(std::move(socket), identity);
            try {
                script(end);
            } catch (const AgentEnd::Gone&) {
                // The test looks at what the phone saw.
            } catch (const std::exception& unexpected) {
                ADD_FAILURE() << "the phone sent nonsense: " << unexpected.what();
            }
            end.stream.close();
            accept();
        });
    }

    const Script script;
    boost::asio::io_context context;
    boost::asio::ip::tcp::acceptor acceptor;
    std::thread thread;
};

}  // namespace orvel::phone
