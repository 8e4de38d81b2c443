#include "OrvelAgent/Desk/ClipboardWatcher.h"

#include <utility>

#include "OrvelAgent/Desk/Characters.h"

namespace orvel {

ClipboardWatcher::ClipboardWatcher(SerialQueue& mainQueue, Pasteboard& desktopPasteboard)
    : queue(mainQueue), pasteboard(desktopPasteboard) {
    queue.assertCurrent();
    lastCount = pasteboard.changeCount();
}

void ClipboardWatcher::start() {
    queue.assertCurrent();
    scheduleTick();
}

void ClipboardWatcher::setText(std::string text) {
    queue.assertCurrent();
    ++writes;
    lastCount = pasteboard.setString(std::move(text));
}

void ClipboardWatcher::scheduleTick() {
    timer = queue.after(interval, [weak = weak_from_this()] {
        const auto self = weak.lock();
        if (!self) return;
        self->queue.assertCurrent();
        self->scheduleTick();
        self->tick();
    });
}

void ClipboardWatcher::tick() {
    const std::int64_t count = pasteboard.changeCount();
    if (count == lastCount) return;
    lastCount = count;
    pasteboard.readString(maxBytes, [weak = weak_from_this(), count,
                                     writesBefore = writes](std::optional<std::string> text) {
        const auto self = weak.lock();
        if (!self) return;
        self->queue.assertCurrent();
        // Meanwhile something else was copied, which the next tick sees, or it is our own text.
        if (self->pasteboard.changeCount() != count || self->writes != writesBefore) return;
        if (!text || text->empty() || hasMoreCharactersThan(maxCharacters, *text)) return;
        if (self->onCopy) self->onCopy(*std::move(text));
    });
}

}  // namespace orvel
