#pragma once

#include <array>
#include <deque>
#include <optional>

#include "OrvelKit/Base/UniqueFunction.h"
#include "OrvelKit/Wire/Framing.h"

namespace orvel {

// What waits to leave on one connection, in classes: control before audio before video before
// files, first in first out within a class. Frames are sealed when they are taken out, so the
// order here is the order of the seal's counters. A file frame that has waited while
// `videoShare` bytes of video left goes next, so that neither starves.
//
// A completion is called once: by the taker after the send, or here when the frame is replaced;
// never when the queue is destroyed. Belongs to its session's queue.
class OutboundQueue {
public:
    using Completion = UniqueFunction<void()>;

    struct Entry {
        FrameBuffer frame;
        Completion completion;  // may be empty
        bool isKeyframe = false;
    };

    static constexpr std::size_t maxControlBytes = 32 * 1024 * 1024;
    static constexpr std::size_t videoShare = 256 * 1024;

    // A video format or a keyframe replaces the video waiting before it, since whoever gets it
    // needs nothing older; a format just before its keyframe stays.
    void push(Entry entry);

    // Drops the video that waits and all that comes before the next video format: after a welcome
    // the phone expects a new stream.
    void restartVideo();

    std::optional<Entry> pop();

    // True when more than maxControlBytes of control wait: the peer asks but does not read.
    bool isOverfull() const { return controlBytes > maxControlBytes; }

private:
    using Class = std::deque<Entry>;
    enum { control, audio, video, file, classCount };

    void dropVideo(std::size_t keepLast);

    std::array<Class, classCount> classes;
    std::size_t controlBytes = 0;
    std::size_t videoSinceFile = 0;  // bytes that left while a file frame waited
    bool awaitsFormat = true;        // no video before the first welcome's format
};

}  // namespace orvel
