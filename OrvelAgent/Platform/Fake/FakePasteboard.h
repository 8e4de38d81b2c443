#pragma once

#include <utility>
#include <vector>

#include "OrvelAgent/Platform/Pasteboard.h"

namespace orvel {

// A clipboard whose other users are played by the test, on the main queue or while it is quiet.
class FakePasteboard : public Pasteboard {
public:
    explicit FakePasteboard(SerialQueue& main) : mainQueue(main) {}

    // Somebody copies; nullopt: something else than text.
    void copy(std::optional<std::string> text) {
        content = std::move(text);
        ++count;
    }
    std::optional<std::string> content;
    std::int64_t count = 40;
    bool countsOwnWrites = true;
    std::vector<std::string> written;

    // The owner of what was copied takes its time: answers wait for answerNow().
    bool answersLate = false;
    void answerNow() {
        for (auto& answer : std::exchange(late, {}))
            mainQueue.post(std::move(answer));
    }
    std::size_t readsWaiting() const { return late.size(); }

    std::int64_t changeCount() override { return count; }
    void readString(std::size_t maxBytes,
                    std::function<void(std::optional<std::string>)> completion) override {
        std::function<void()> answer = [this, maxBytes, completion = std::move(completion)] {
            const bool isTooLong = content && content->size() > maxBytes;
            completion(isTooLong ? std::nullopt : content);
        };
        if (answersLate) return late.push_back(std::move(answer));
        mainQueue.post(std::move(answer));
    }
    std::int64_t setString(std::string text) override {
        written.push_back(text);
        content = std::move(text);
        if (countsOwnWrites) ++count;
        return count;
    }

private:
    SerialQueue& mainQueue;
    std::vector<std::function<void()>> late;
};

}  // namespace orvel
