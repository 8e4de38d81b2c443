#pragma once

#include <cstdint>

namespace orvel {

// Flow control of the encoded video to the active link: when the network falls `ceiling` frames
// behind, delta frames stop until a keyframe has been produced, so that a phone never decodes a
// frame whose reference was left out. A value on "orvel.agent".
class VideoFlow {
public:
    static constexpr int ceiling = 7;  // frames handed to the connection and not yet completed

    enum class Decision { send, drop, dropAndRequestKeyframe };
    using Admission = std::uint64_t;

    // A phone was admitted: nothing is outstanding. Completions of frames sent before it no longer
    // count, whichever link they were sent on.
    void reset() {
        ++admission;
        inFlight = 0;
        waitingForKeyframe = false;
    }

    // For the next frame. After `send` it counts as outstanding until completed(token()).
    Decision offer(bool isKeyframe) {
        if (isKeyframe) {
            waitingForKeyframe = false;
        } else if (waitingForKeyframe) {
            return Decision::drop;
        } else if (inFlight >= ceiling) {
            waitingForKeyframe = true;
            return Decision::dropAndRequestKeyframe;
        }
        ++inFlight;
        return Decision::send;
    }

    Admission token() const { return admission; }
    void completed(Admission sentUnder) {
        if (sentUnder == admission) --inFlight;
    }

    int outstanding() const { return inFlight; }

private:
    Admission admission = 0;
    int inFlight = 0;
    bool waitingForKeyframe = false;
};

}  // namespace orvel
