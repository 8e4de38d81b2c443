#include "OrvelAgent/Platform/Linux/X11Pasteboard.h"

#include <future>
#include <utility>

#include "OrvelAgent/Platform/Linux/X11Clipboard.h"

namespace orvel {

namespace {

constexpr std::chrono::seconds handOverLimit{1};

}  // namespace

std::unique_ptr<Pasteboard> Pasteboard::create(SerialQueue& mainQueue) {
    return std::make_unique<X11Pasteboard>(mainQueue);
}

X11Pasteboard::X11Pasteboard(SerialQueue& main, std::string display)
    : mainQueue(main), front(std::make_shared<Front>()) {
    auto onCopy = [this, weak = std::weak_ptr(front)](std::uint64_t writes) {
        mainQueue.post([weak, writes] {
            const auto target = weak.lock();
            // What was copied before our last write is not there any more.
            if (target && writes == target->writes) ++target->count;
        });
    };
    queue.post([this, onCopy, name = std::move(display)] {
        queue.assertCurrent();
        clipboard = std::make_unique<X11Clipboard>(queue, name, onCopy);
    });
}

X11Pasteboard::~X11Pasteboard() {
    std::promise<void> ended;
    queue.post([&] {
        queue.assertCurrent();
        clipboard->handOver(handOverLimit);
        clipboard.reset();
        ended.set_value();
    });
    ended.get_future().wait();
}

std::int64_t X11Pasteboard::changeCount() {
    return front->count;
}

void X11Pasteboard::readString(std::size_t maxBytes,
                               std::function<void(std::optional<std::string>)> completion) {
    auto answer = [this, weak = std::weak_ptr(front),
                   completion = std::move(completion)](std::optional<std::string> text) {
        mainQueue.post([weak, completion, text = std::move(text)]() mutable {
            if (!weak.expired()) completion(std::move(text));
        });
    };
    queue.post([this, maxBytes, answer = std::move(answer)] {
        queue.assertCurrent();
        clipboard->read(maxBytes, answer);
    });
}

std::int64_t X11Pasteboard::setString(std::string text) {
    ++front->writes;
    queue.post([this, text = std::move(text)]() mutable {
        queue.assertCurrent();
        clipboard->write(std::move(text));
    });
    return front->count;
}

}  // namespace orvel
