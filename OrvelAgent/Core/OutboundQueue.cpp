#include "OrvelAgent/Core/OutboundQueue.h"

namespace orvel {

void OutboundQueue::push(Entry entry) {
    switch (entry.frame.kind()) {
        case FrameKind::audio:
            classes[audio].push_back(std::move(entry));
            return;
        case FrameKind::file:
            classes[file].push_back(std::move(entry));
            return;
        case FrameKind::videoFormat:
            awaitsFormat = false;
            dropVideo(0);
            classes[video].push_back(std::move(entry));
            return;
        case FrameKind::videoFrame: {
            if (awaitsFormat) {
                if (entry.completion) entry.completion();
                return;
            }
            const auto& waiting = classes[video];
            if (entry.isKeyframe) {
                const bool formatLast =
                    !waiting.empty() && waiting.back().frame.kind() == FrameKind::videoFormat;
                dropVideo(formatLast ? 1 : 0);
            }
            classes[video].push_back(std::move(entry));
            return;
        }
        default:
            controlBytes += entry.frame.payloadLength();
            classes[control].push_back(std::move(entry));
            return;
    }
}

void OutboundQueue::restartVideo() {
    awaitsFormat = true;
    dropVideo(0);
}

// The completions run once the queue is consistent: they may push again.
void OutboundQueue::dropVideo(std::size_t keepLast) {
    Class dropped;
    auto& waiting = classes[video];
    while (waiting.size() > keepLast) {
        dropped.push_back(std::move(waiting.front()));
        waiting.pop_front();
    }
    for (auto& entry : dropped) {
        if (entry.completion) entry.completion();
    }
}

std::optional<OutboundQueue::Entry> OutboundQueue::pop() {
    const bool filesTurn = !classes[file].empty() && videoSinceFile >= videoShare;
    std::size_t next = control;
    while (next < classCount && (classes[next].empty() || (next == video && filesTurn)))
        ++next;
    if (next == classCount) return std::nullopt;

    Entry entry = std::move(classes[next].front());
    classes[next].pop_front();
    if (next == control) controlBytes -= entry.frame.payloadLength();
    if (next == file || classes[file].empty()) {
        videoSinceFile = 0;
    } else if (next == video) {
        videoSinceFile += entry.frame.payloadLength();
    }
    return entry;
}

}  // namespace orvel
