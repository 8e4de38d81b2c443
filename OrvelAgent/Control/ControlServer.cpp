#include "OrvelAgent/Control/ControlServer.h"

#include <algorithm>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/write.hpp>
#include <deque>
#include <utility>
#include <vector>

#include "OrvelKit/Base/QueueIo.h"

namespace orvel {

namespace {

namespace asio = boost::asio;
using asio::local::stream_protocol;
using boost::system::error_code;

constexpr Duration pauseAfterFailedAccept = std::chrono::seconds(1);

}  // namespace

class ControlServer::Works : public std::enable_shared_from_this<ControlServer::Works> {
public:
    Works(SerialQueue& ownQueue, SerialQueue& main, Handler requestHandler)
        : queue(ownQueue), mainQueue(main), handler(std::move(requestHandler)) {}

    void open(int listener);
    void close();
    void publish(std::string line);

private:
    struct Client {
        explicit Client(stream_protocol::socket connected) : stream(std::move(connected)) {}
        stream_protocol::socket stream;
        std::string input;
        std::deque<std::string> outbox;
        std::size_t waiting = 0;  // bytes in the outbox
        Timer idle;
        bool follows = false;
        bool isEnding = false;  // as soon as the outbox is empty
        bool hasGone = false;
    };
    using ClientHandle = std::shared_ptr<Client>;

    template <class Body>
    auto onQueue(Body body);
    void accept() RUNS_ON(queue);
    void welcome(stream_protocol::socket stream) RUNS_ON(queue);
    void read(const ClientHandle& client) RUNS_ON(queue);
    void received(const ClientHandle& client, const std::string& line) RUNS_ON(queue);
    void answered(const ClientHandle& client, std::string line, bool isFollow) RUNS_ON(queue);
    void write(const ClientHandle& client, std::string line) RUNS_ON(queue);
    void writeNext(const ClientHandle& client) RUNS_ON(queue);
    void refuse(const ClientHandle& client, const std::string& why) RUNS_ON(queue);
    void end(const ClientHandle& client) RUNS_ON(queue);
    void drop(const ClientHandle& client) RUNS_ON(queue);

    SerialQueue& queue;
    SerialQueue& mainQueue;
    Handler handler;  // of the main queue; null when over
    std::unique_ptr<stream_protocol::acceptor> acceptor OWNED_BY(queue);
    std::vector<ClientHandle> clients OWNED_BY(queue);
    Timer retry OWNED_BY(queue);
};

template <class Body>
auto ControlServer::Works::onQueue(Body body) {
    return [weak = weak_from_this(), body = std::move(body)](auto&&... arguments) mutable {
        const auto self = weak.lock();
        if (!self) return;
        self->queue.assertCurrent();
        body(*self, std::forward<decltype(arguments)>(arguments)...);
    };
}

void ControlServer::Works::open(int listener) {
    queue.post(onQueue([listener](Works& self) {
        self.queue.assertCurrent();
        self.acceptor = std::make_unique<stream_protocol::acceptor>(ioContext(self.queue),
                                                                    stream_protocol(), listener);
        self.accept();
    }));
}

void ControlServer::Works::close() {
    handler = nullptr;
    // The last owner lets go of the sockets where they live.
    queue.post([self = shared_from_this()] {
        self->queue.assertCurrent();
        self->acceptor.reset();
        self->retry.cancel();
        for (const auto all = self->clients; const ClientHandle& client : all)
            self->drop(client);
    });
}

void ControlServer::Works::publish(std::string line) {
    queue.post(onQueue([line = std::move(line)](Works& self) {
        self.queue.assertCurrent();
        for (const auto all = self.clients; const ClientHandle& client : all) {
            if (client->follows) self.write(client, line);
        }
    }));
}

void ControlServer::Works::accept() {
    acceptor->async_accept(
        onQueue([](Works& self, const error_code& error, stream_protocol::socket stream) {
            self.queue.assertCurrent();
            if (!self.acceptor) return;
            if (!error) {
                self.welcome(std::move(stream));
                return self.accept();
            }
            // No descriptors are left, for example.
            self.retry = self.queue.after(pauseAfterFailedAccept, self.onQueue([](Works& again) {
                again.queue.assertCurrent();
                again.accept();
            }));
        }));
}

void ControlServer::Works::welcome(stream_protocol::socket stream) {
    if (!ControlSocket::isOfOwnUser(stream.native_handle())) return;
    const auto client = std::make_shared<Client>(std::move(stream));
    clients.push_back(client);
    if (clients.size() > maxClients) return refuse(client, "too many commands at once");
    read(client);
}

void ControlServer::Works::read(const ClientHandle& client) {
    client->idle = queue.after(idleTime, onQueue([weak = std::weak_ptr(client)](Works& self) {
                                   self.queue.assertCurrent();
                                   if (const auto idler = weak.lock(); idler && !idler->follows)
                                       self.drop(idler);
                               }));
    asio::async_read_until(
        client->stream, asio::dynamic_buffer(client->input, maxLine), '\n',
        onQueue([client](Works& self, const error_code& error, std::size_t length) {
            self.queue.assertCurrent();
            if (client->hasGone) return;
            if (error == asio::error::not_found) return self.refuse(client, "the line is too long");
            if (error) return self.end(client);
            const std::string line = client->input.substr(0, length - 1);
            client->input.erase(0, length);
            self.received(client, line);
        }));
}

void ControlServer::Works::received(const ClientHandle& client, const std::string& line) {
    auto request = ControlRequest::parse(line);
    if (const auto* action = std::get_if<HeadlessAction::Any>(&request)) {
        if (const auto* unknown = std::get_if<HeadlessAction::Unknown>(action)) {
            return refuse(client, unknown->description);
        }
    }
    const bool isFollow = std::holds_alternative<ControlRequest::Follow>(request);
    Answer answer = [weak = weak_from_this(), client, isFollow](std::string text) {
        const auto self = weak.lock();
        if (!self) return;
        self->queue.post(self->onQueue([client, isFollow, text = std::move(text)](Works& own) {
            own.queue.assertCurrent();
            own.answered(client, text, isFollow);
        }));
    };
    mainQueue.post([weak = weak_from_this(), request = std::move(request),
                    answer = std::move(answer)]() mutable {
        const auto self = weak.lock();
        if (!self) return;
        if (const Handler call = self->handler) call(request, std::move(answer));
    });
}

void ControlServer::Works::answered(const ClientHandle& client, std::string line, bool isFollow) {
    if (client->hasGone) return;
    if (isFollow) client->follows = true;
    write(client, std::move(line));
    if (!client->hasGone) read(client);
}

void ControlServer::Works::write(const ClientHandle& client, std::string line) {
    if (client->hasGone || client->isEnding) return;
    line += '\n';
    if (client->waiting + line.size() > maxWaiting) return drop(client);
    client->waiting += line.size();
    client->outbox.push_back(std::move(line));
    if (client->outbox.size() == 1) writeNext(client);
}

void ControlServer::Works::writeNext(const ClientHandle& client) {
    asio::async_write(client->stream, asio::buffer(client->outbox.front()),
                      onQueue([client](Works& self, const error_code& error, std::size_t) {
                          self.queue.assertCurrent();
                          if (client->hasGone) return;
                          if (error) return self.drop(client);
                          client->waiting -= client->outbox.front().size();
                          client->outbox.pop_front();
                          if (!client->outbox.empty()) return self.writeNext(client);
                          if (client->isEnding) self.drop(client);
                      }));
}

void ControlServer::Works::refuse(const ClientHandle& client, const std::string& why) {
    write(client, headlessLine::error(why));
    if (!client->hasGone) end(client);
}

void ControlServer::Works::end(const ClientHandle& client) {
    client->follows = false;  // the idle timer is the bound now
    client->isEnding = true;
    if (client->outbox.empty()) drop(client);
}

void ControlServer::Works::drop(const ClientHandle& client) {
    if (std::exchange(client->hasGone, true)) return;
    error_code ignored;
    client->stream.close(ignored);
    client->idle.cancel();
    std::erase(clients, client);
}

ControlServer::ControlServer(SerialQueue& queue, SerialQueue& mainQueue,
                             std::unique_ptr<ControlSocket> listening, Handler handler)
    : works(std::make_shared<Works>(queue, mainQueue, std::move(handler))),
      socket(std::move(listening)) {
    works->open(socket->takeListener());
}

ControlServer::~ControlServer() {
    works->close();
}

void ControlServer::publish(std::string line) {
    works->publish(std::move(line));
}

}  // namespace orvel
