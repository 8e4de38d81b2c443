#include "Phone/LinkHost.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/write.hpp>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "OrvelKit/Base/QueueIo.h"
#include "OrvelKit/Wire/Framing.h"

namespace orvel::phone {

namespace {

namespace asio = boost::asio;
using asio::local::stream_protocol;
using boost::system::error_code;
using Event = AgentLink::Event;

constexpr std::size_t maxWaiting = 2 << 20;  // bytes for one command
constexpr Duration patience = std::chrono::seconds(2);

}  // namespace

class LinkHost::Works : public std::enable_shared_from_this<LinkHost::Works> {
public:
    Works(SerialQueue& hostQueue, Welcome agentWelcome, std::function<void(const Control&)> sender)
        : queue(hostQueue),
          welcome(std::move(agentWelcome)),
          send(std::move(sender)),
          acceptor(ioContext(hostQueue)) {}

    std::string open(const std::string& path);
    void close();
    void offer(Event event);

private:
    // A frame on its way to a command; the bytes of a file are not copied again.
    struct Outgoing {
        Bytes head, body;
        std::size_t size() const { return head.size() + body.size(); }
    };

    struct Command {
        explicit Command(stream_protocol::socket stream) : socket(std::move(stream)) {}
        stream_protocol::socket socket;
        FrameParser parser;
        std::array<std::uint8_t, 65536> input{};
        std::deque<Outgoing> outbox;
        std::size_t waiting = 0;  // bytes in the outbox
        bool isWriting = false;
        bool hasGone = false;
    };
    using CommandHandle = std::shared_ptr<Command>;
    // What an answer is for: which command, and its own number for it.
    struct Question {
        std::weak_ptr<Command> command;
        std::uint64_t number = 0;
    };

    template <class Body>
    auto onQueue(Body body);
    template <class Body>
    void runAndWait(Body body);
    void accept() RUNS_ON(queue);
    void read(const CommandHandle& command) RUNS_ON(queue);
    void receive(const CommandHandle& command, ByteView bytes) RUNS_ON(queue);
    void pass(const CommandHandle& command, Control control) RUNS_ON(queue);
    void deliver(Event& event) RUNS_ON(queue);
    void answer(FileFrame& frame) RUNS_ON(queue);
    void write(const CommandHandle& command, Outgoing frame) RUNS_ON(queue);
    void writeNext(const CommandHandle& command) RUNS_ON(queue);
    void drop(const CommandHandle& command) RUNS_ON(queue);
    void countWaiting() RUNS_ON(queue);
    static Outgoing frameOf(const Control& control) {
        return {Framing::encodeControl(control), {}};
    }

    SerialQueue& queue;
    Welcome welcome OWNED_BY(queue);
    const std::function<void(const Control&)> send;
    stream_protocol::acceptor acceptor OWNED_BY(queue);
    std::vector<CommandHandle> commands OWNED_BY(queue);
    std::map<std::uint32_t, Question> downloads OWNED_BY(queue);
    std::map<std::uint64_t, Question> pings OWNED_BY(queue);
    std::deque<std::weak_ptr<Command>> listings OWNED_BY(queue);  // answered in their order
    std::uint32_t lastDownload OWNED_BY(queue) = 0;
    std::uint64_t lastPing OWNED_BY(queue) = 0;
    std::string socketPath OWNED_BY(queue);
    ino_t socketFile OWNED_BY(queue) = 0;  // what was made there: somebody may have replaced it

    std::mutex mutex;
    std::condition_variable changed;
    std::size_t mostWaiting = 0;  // of any command, offered ones included
};

template <class Body>
auto LinkHost::Works::onQueue(Body body) {
    return [self = shared_from_this(), body = std::move(body)](auto&&... arguments) mutable {
        self->queue.assertCurrent();
        body(*self, std::forward<decltype(arguments)>(arguments)...);
    };
}

template <class Body>
void LinkHost::Works::runAndWait(Body body) {
    bool done = false;
    queue.post(onQueue([body = std::move(body), &done](Works& self) {
        body(self);
        const std::lock_guard hold(self.mutex);
        done = true;
        self.changed.notify_all();
    }));
    std::unique_lock hold(mutex);
    changed.wait(hold, [&] { return done; });
}

std::string LinkHost::Works::open(const std::string& path) {
    std::string problem;
    runAndWait([&](Works& self) {
        self.queue.assertCurrent();
        // One that is left of a process that was killed, or of another watch, whose connection ours
        // has ended.
        ::unlink(path.c_str());
        try {
            self.acceptor.open();
            self.acceptor.bind(stream_protocol::endpoint(path));
            // Nobody can connect before listen().
            struct stat made {};
            if (::chmod(path.c_str(), 0600) != 0 || ::stat(path.c_str(), &made) != 0) {
                throw boost::system::system_error(errno, boost::system::system_category());
            }
            self.socketFile = made.st_ino;
            self.socketPath = path;
            self.acceptor.listen();
            self.accept();
        } catch (const boost::system::system_error& error) {
            problem = error.code().message();
        }
    });
    return problem;
}

void LinkHost::Works::close() {
    runAndWait([](Works& self) {
        self.queue.assertCurrent();
        error_code ignored;
        self.acceptor.close(ignored);
        struct stat there {};
        if (!self.socketPath.empty() && ::stat(self.socketPath.c_str(), &there) == 0 &&
            there.st_ino == self.socketFile) {
            ::unlink(self.socketPath.c_str());
        }
        for (const auto all = self.commands; const CommandHandle& command : all)
            self.drop(command);
    });
}

void LinkHost::Works::accept() {
    acceptor.async_accept(
        onQueue([](Works& self, const error_code& error, stream_protocol::socket socket) {
            self.queue.assertCurrent();
            if (!self.acceptor.is_open()) return;
            if (!error) {
                const auto command = std::make_shared<Command>(std::move(socket));
                self.commands.push_back(command);
                self.write(command, frameOf({self.welcome}));
                self.read(command);
            }
            self.accept();
        }));
}

// --- From a command to the agent ---

void LinkHost::Works::read(const CommandHandle& command) {
    command->socket.async_read_some(
        asio::buffer(command->input),
        onQueue([command](Works& self, const error_code& error, std::size_t length) {
            self.queue.assertCurrent();
            if (command->hasGone) return;
            if (error) return self.drop(command);
            try {
                self.receive(command, ByteView(command->input).first(length));
            } catch (const std::exception&) {
                return self.drop(command);  // no command of ours
            }
            if (!command->hasGone) self.read(command);
        }));
}

void LinkHost::Works::receive(const CommandHandle& command, ByteView bytes) {
    while (const auto frame = command->parser.next(bytes, {FrameKind::control}))
        pass(command, Framing::decodeControl(frame->payload));
}

void LinkHost::Works::pass(const CommandHandle& command, Control control) {
    if (auto* fetch = std::get_if<Control::FetchFile>(&control.value)) {
        downloads[++lastDownload] = {command, fetch->id};
        fetch->id = lastDownload;
    } else if (const auto* cancel = control.as<Control::CancelFetch>()) {
        for (const auto& [id, question] : downloads) {
            if (question.number == cancel->id && question.command.lock() == command) {
                send({Control::CancelFetch{id}});
            }
        }
        return;
    } else if (auto* ping = std::get_if<Control::Ping>(&control.value)) {
        pings[++lastPing] = {command, ping->value};
        ping->value = lastPing;
    } else if (control.as<Control::ListDirectory>()) {
        listings.push_back(command);
    } else if (!control.as<Control::Move>() && !control.as<Control::MoveTo>() &&
               !control.as<Control::Button>() && !control.as<Control::Scroll>() &&
               !control.as<Control::Key>() && !control.as<Control::Text>() &&
               !control.as<Control::Clipboard>()) {
        return;  // whose connection it is decides about picture and sound
    }
    send(control);
}

// --- From the agent to the commands ---

void LinkHost::Works::offer(Event event) {
    std::size_t size = 0;
    if (const auto* frame = event.as<FileFrame>()) {
        const auto* data = std::get_if<FileFrame::Data>(&frame->step);
        size = data ? data->bytes.size() : 0;
    } else if (!event.as<Control>()) {
        return;
    }
    std::unique_lock hold(mutex);
    const bool hasRoom =
        changed.wait_for(hold, patience, [&] { return mostWaiting <= maxWaiting; });
    mostWaiting += size;
    queue.post(onQueue([event = std::move(event), hasRoom](Works& self) mutable {
        self.queue.assertCurrent();
        if (!hasRoom) {
            for (const auto all = self.commands; const CommandHandle& command : all) {
                if (command->waiting > maxWaiting / 2) self.drop(command);
            }
        }
        self.deliver(event);
        self.countWaiting();
    }));
}

void LinkHost::Works::deliver(Event& event) {
    if (auto* frame = std::get_if<FileFrame>(&event.value)) return answer(*frame);
    const Control& control = std::get<Control>(event.value);
    if (const auto* pong = control.as<Control::Pong>()) {
        const auto found = pings.find(pong->value);
        if (found == pings.end()) return;
        const Question question = found->second;
        pings.erase(found);
        if (const auto command = question.command.lock()) {
            write(command, frameOf({Control::Pong{question.number}}));
        }
    } else if (control.as<DirectoryListing>()) {
        if (listings.empty()) return;
        const auto command = listings.front().lock();
        listings.pop_front();
        if (command) write(command, frameOf(control));
    } else {
        if (const auto* fresh = control.as<Welcome>()) {
            const auto key = welcome.agentKey;
            welcome = *fresh;
            welcome.agentKey = key;
        }
        for (const CommandHandle& command : commands)
            write(command, frameOf(control));
    }
}

void LinkHost::Works::answer(FileFrame& frame) {
    const auto found = downloads.find(frame.id);
    if (found == downloads.end()) return;
    const Question question = found->second;
    if (std::holds_alternative<FileFrame::End>(frame.step)) downloads.erase(found);
    const auto command = question.command.lock();
    if (!command) return;
    frame.id = static_cast<std::uint32_t>(question.number);
    if (auto* data = std::get_if<FileFrame::Data>(&frame.step)) {
        Bytes body = std::exchange(data->bytes, {});
        const FrameBuffer empty = frame.encode();
        Bytes head(empty.frame().begin(), empty.frame().end());
        Framing::storeHeader(head.data(), FrameKind::file, empty.payloadLength() + body.size());
        write(command, {std::move(head), std::move(body)});
    } else {
        const FrameBuffer whole = frame.encode();
        write(command, {Bytes(whole.frame().begin(), whole.frame().end()), {}});
    }
}

void LinkHost::Works::write(const CommandHandle& command, Outgoing frame) {
    if (command->hasGone) return;
    command->waiting += frame.size();
    command->outbox.push_back(std::move(frame));
    if (!command->isWriting) writeNext(command);
}

void LinkHost::Works::writeNext(const CommandHandle& command) {
    const Outgoing& next = command->outbox.front();
    command->isWriting = true;
    asio::async_write(
        command->socket,
        std::array<asio::const_buffer, 2>{asio::buffer(next.head), asio::buffer(next.body)},
        onQueue([command](Works& self, const error_code& error, std::size_t) {
            self.queue.assertCurrent();
            command->isWriting = false;
            if (command->hasGone) return;
            if (error) return self.drop(command);
            command->waiting -= command->outbox.front().size();
            command->outbox.pop_front();
            self.countWaiting();
            if (!command->outbox.empty()) self.writeNext(command);
        }));
}

void LinkHost::Works::countWaiting() {
    std::size_t most = 0;
    for (const CommandHandle& command : commands)
        most = std::max(most, command->waiting);
    const std::lock_guard hold(mutex);
    mostWaiting = most;
    changed.notify_all();
}

void LinkHost::Works::drop(const CommandHandle& command) {
    if (std::exchange(command->hasGone, true)) return;
    error_code ignored;
    command->socket.close(ignored);
    std::erase(commands, command);
    for (const auto& [id, question] : downloads) {
        if (question.command.lock() == command) send({Control::CancelFetch{id}});
    }
    countWaiting();
}

LinkHost::LinkHost(const std::string& path, Welcome welcome,
                   std::function<void(const Control&)> send)
    : queue(std::make_unique<SerialQueue>("orvel.link")),
      works(std::make_shared<Works>(*queue, std::move(welcome), std::move(send))) {
    trouble = works->open(path);
}

LinkHost::~LinkHost() {
    works->close();
}

void LinkHost::offer(AgentLink::Event event) {
    works->offer(std::move(event));
}

std::string LinkHost::pathFor(const std::string& stateFolder, const std::string& agentID) {
    return stateFolder + "/link-" + agentID;
}

}  // namespace orvel::phone
