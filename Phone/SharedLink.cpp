#include "Phone/SharedLink.h"

#include <poll.h>

#include <algorithm>
#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/write.hpp>

#include "OrvelKit/Wire/Framing.h"

namespace orvel::phone {

namespace {

namespace asio = boost::asio;
using asio::local::stream_protocol;
using boost::system::error_code;

constexpr std::size_t inputLength = 256 << 10;

}  // namespace

struct SharedLink::Stream {
    asio::io_context context;  // never runs: all calls are synchronous
    stream_protocol::socket socket{context};
};

std::unique_ptr<SharedLink> SharedLink::open(const std::string& path) {
    auto stream = std::make_unique<Stream>();
    try {
        stream->socket.connect(stream_protocol::endpoint(path));
    } catch (const boost::system::system_error&) {
        return nullptr;  // none there, or a path that is too long for one
    }
    return std::unique_ptr<SharedLink>(new SharedLink(std::move(stream)));
}

SharedLink::SharedLink(std::unique_ptr<Stream> opened)
    : stream(std::move(opened)), input(inputLength) {}

SharedLink::~SharedLink() = default;

void SharedLink::send(const Control& control) {
    if (ended) return;
    error_code ignored;  // the next read will see it
    asio::write(stream->socket, asio::buffer(Framing::encodeControl(control)), ignored);
}

std::optional<AgentLink::Event> SharedLink::next(Duration timeout) {
    const MonotonicTime deadline = std::chrono::steady_clock::now() + timeout;
    while (waiting.empty() && !ended) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        pollfd readable{stream->socket.native_handle(), POLLIN, 0};
        const int most = static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 60'000));
        if (::poll(&readable, 1, most) <= 0) {
            if (std::chrono::steady_clock::now() >= deadline) return std::nullopt;
            continue;
        }
        error_code error;
        const std::size_t length = stream->socket.read_some(asio::buffer(input), error);
        if (error) {
            end({Closed::Reason::reset, "the watch that shared it has ended"});
            break;
        }
        try {
            receive(ByteView(input).first(length));
        } catch (const std::exception& nonsense) {
            end({Closed::Reason::nonsense, nonsense.what()});
        }
    }
    if (waiting.empty()) return std::nullopt;
    Event event = std::move(waiting.front());
    waiting.pop_front();
    return event;
}

void SharedLink::receive(ByteView bytes) {
    while (const auto frame = parser.next(bytes, {})) {
        waiting.push_back(
            {std::chrono::steady_clock::now(), Event::decode(frame->kind, frame->payload)});
    }
}

void SharedLink::end(Closed why) {
    ended = why;
    waiting.push_back({std::chrono::steady_clock::now(), std::move(why)});
}

}  // namespace orvel::phone
