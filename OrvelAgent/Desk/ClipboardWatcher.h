#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "OrvelAgent/Platform/Pasteboard.h"
#include "OrvelKit/Base/SerialQueue.h"

namespace orvel {

// Reports text that somebody copies on this computer, so that the phone can offer it, and puts the
// phone's text on the clipboard without reporting that. What was there before is not reported;
// neither is anything but text, no text, or too long a text. Of several copies within a second it
// reports the last.
//
// Made and used on the main queue, owned by a shared_ptr.
class ClipboardWatcher : public std::enable_shared_from_this<ClipboardWatcher> {
public:
    static constexpr std::chrono::seconds interval{1};
    static constexpr std::size_t maxCharacters = 1'000'000;  // as people count them: Characters.h
    // Not fetched beyond this, however few characters that is: with the longest escapes that JSON
    // may need for them, the control still fits into a sealed frame.
    static constexpr std::size_t maxBytes = 10 * 1024 * 1024;

    // Both outlive the watcher.
    ClipboardWatcher(SerialQueue& mainQueue, Pasteboard& pasteboard);

    std::function<void(std::string)> onCopy;

    void start();
    void setText(std::string text);

private:
    void scheduleTick() RUNS_ON(queue);
    void tick() RUNS_ON(queue);

    SerialQueue& queue;
    Pasteboard& pasteboard OWNED_BY(queue);
    std::int64_t lastCount OWNED_BY(queue) = 0;  // the change count last seen or caused
    std::uint64_t writes OWNED_BY(queue) = 0;    // of our own
    Timer timer OWNED_BY(queue);
};

}  // namespace orvel
