#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>

namespace orvel {

// What other threads tell a test, which waits for it, but not for ever.
template <class T>
class Inbox {
public:
    void put(T item) {
        const std::lock_guard guard(lock);
        items.push_back(std::move(item));
        arrived.notify_one();
    }

    std::optional<T> take(std::chrono::seconds limit = std::chrono::seconds(10)) {
        std::unique_lock guard(lock);
        if (!arrived.wait_for(guard, limit, [this] { return !items.empty(); })) return std::nullopt;
        T item = std::move(items.front());
        items.pop_front();
        return item;
    }

private:
    std::mutex lock;
    std::condition_variable arrived;
    std::deque<T> items;
};

}  // namespace orvel
