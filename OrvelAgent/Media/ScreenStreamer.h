#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "OrvelAgent/Media/AudioEncoder.h"
#include "OrvelAgent/Media/PixelBuffer.h"
#include "OrvelAgent/Platform/CompressionSession.h"
#include "OrvelAgent/Platform/ScreenSource.h"
#include "OrvelKit/Base/SerialQueue.h"
#include "OrvelKit/Wire/Control.h"
#include "OrvelKit/Wire/FrameBuffer.h"

namespace orvel {

class VideoEncoder;

// Captures one display and the computer's sound. It delivers the pictures in two ways at once:
// encoded, for the phone on the local network, and raw, through a sink, for the internet session.
// When the screen comes to rest it sends one extra sharp keyframe and keeps handing the last
// picture to the sink. Sound is encoded as it comes.
//
// One streamer serves all links one after the other. Every start has a number, and only the newest
// start counts: it ends whatever capture was asked for before, waiting, starting or running, and a
// stop for an older number does nothing. Starts and stops never overlap.
//
// Owned by a shared_ptr. Functions may be called from any thread; they act on the capture queue in
// the order of the calls, setAudio() also on the audio queue. Destroying the streamer ends the
// capture; nothing is called after that but what another thread has just begun to call.
class ScreenStreamer : public std::enable_shared_from_this<ScreenStreamer> {
public:
    struct Display {
        std::uint32_t id = 0;  // the captured one, which may not be the one asked for
        double pointsWidth = 0, pointsHeight = 0;
        int videoWidth = 0, videoHeight = 0;  // pixels of the pictures, even
        std::vector<DisplayInfo> all;
        bool operator==(const Display&) const = default;
    };

    struct StreamerError {
        enum class Code { noDisplay } code;
        std::string description() const;
    };

    // Why a start came to nothing.
    struct StartFailure {
        enum class Reason {
            noDisplay,  // StreamerError
            encoder,    // VideoEncoder::EncoderError
            capture,    // CaptureError
            superseded  // a later start or a stop of this one came in between
        } reason;
        std::string description;  // for people
    };
    using StartResult = std::variant<Display, StartFailure>;

    // Positive, rising; never given twice by one streamer.
    using CaptureID = std::uint64_t;
    using Sink = std::function<void(std::shared_ptr<const PixelBuffer>)>;

    // The queues outlive the streamer; `source` was made with them.
    ScreenStreamer(SerialQueue& captureQueue, SerialQueue& audioQueue,
                   std::unique_ptr<ScreenSource> source, CompressionSession::Factory factory);
    ~ScreenStreamer();
    ScreenStreamer(const ScreenStreamer&) = delete;
    ScreenStreamer& operator=(const ScreenStreamer&) = delete;

    // Set before the first start, not changed after it. onFormat and onFrame are called on the
    // capture queue or on a thread of the encoder, one call at a time in the order of the stream.

    // A whole videoFormat frame; comes just before each keyframe.
    std::function<void(FrameBuffer format)> onFormat;
    // A whole videoFrame frame.
    std::function<void(FrameBuffer frame, bool isKeyframe)> onFrame;
    // On the audio queue: 20 ms of sound, numbered from 1 on over all captures.
    std::function<void(AudioPacket packet)> onAudio;
    // On the capture queue: the newest capture ended by itself after its start had succeeded. Once
    // for each capture, and not when a stop or a later start got there first.
    std::function<void(CaptureID, std::optional<CaptureError>)> onStop;

    // Captures display `displayID` (absent, or not there: the main display, else the first) with
    // pictures whose longer edge is at most `maxPixels` pixels. `completion` is called once, on
    // the capture queue; frames come only after it was called with a Display.
    CaptureID start(std::optional<std::uint32_t> displayID, int maxPixels,
                    std::function<void(StartResult)> completion);

    // Ends that capture if it is still the newest asked for. `completion` is called on the capture
    // queue; after it no frame of that capture comes.
    void stop(CaptureID capture, std::function<void()> completion = {});

    // The next frame is a keyframe: the last picture, if there is one, is encoded again with its
    // old time. Requests that come before the queue has seen the first one are one.
    void requestKeyframe();

    // Whether pictures are encoded; true at first. The internet session switches it off.
    void setEncodes(bool encodes);

    // Whether sound is captured and encoded; true at first. What was not yet a whole packet is
    // forgotten.
    void setAudio(bool isOn);

    // Receiver of every picture, and on a still screen of the last one four times a second; called
    // on the capture queue. nullptr: none.
    void setSink(Sink sink);

private:
    struct Frame {
        std::shared_ptr<const PixelBuffer> image;
        MonotonicTime time;       // of its capture; the epoch when unknown
        MonotonicTime arrivedAt;  // by the queue's clock
    };
    struct StartRequest {
        CaptureID id;
        std::optional<std::uint32_t> displayID;
        int maxPixels;
        std::function<void(StartResult)> completion;
    };

    // Takes the next step from what is towards what is wanted; called after each change of either.
    void reconcile() RUNS_ON(queue);
    void listDisplays(StartRequest request) RUNS_ON(queue);
    void startCapture(StartRequest request, const ScreenSource::DisplayList& list) RUNS_ON(queue);
    void finishStart(const StartRequest& request, StartResult result) RUNS_ON(queue);
    void forgetCapture() RUNS_ON(queue);

    void receive(CaptureID capture, const ScreenSource::Sample& sample) RUNS_ON(queue);
    void sourceStopped(CaptureID capture, std::optional<CaptureError> error) RUNS_ON(queue);
    void receiveAudio(const AudioSamples& samples) RUNS_ON(audioQueue);
    void armIdleTimer() RUNS_ON(queue);
    void checkIdle() RUNS_ON(queue);

    // A task for the queue, or for the source to call there, that does nothing once the streamer
    // is gone.
    template <class Body>
    auto onQueue(Body body);

    SerialQueue& queue;
    SerialQueue& audioQueue;
    std::atomic<CaptureID> lastGiven{0};
    std::atomic<bool> keyframeRequested{false};  // and not yet seen by the queue
    std::atomic<bool> audioOn{true};
    std::unique_ptr<ScreenSource> source OWNED_BY(queue);
    std::shared_ptr<VideoEncoder> encoder OWNED_BY(queue);

    CaptureID newest OWNED_BY(queue) = 0;     // start seen
    CaptureID wanted OWNED_BY(queue) = 0;     // the newest unless it was stopped or ended; 0: none
    CaptureID running OWNED_BY(queue) = 0;    // what the source captures; 0: nothing
    bool isChanging OWNED_BY(queue) = false;  // the source works on a start or stop
    std::optional<StartRequest> nextStart OWNED_BY(queue);
    std::vector<std::function<void()>> stopCompletions OWNED_BY(queue);

    bool encodes OWNED_BY(queue) = true;
    Sink sink OWNED_BY(queue);
    std::optional<Frame> lastFrame OWNED_BY(queue);  // of the wanted capture
    bool sharpSent OWNED_BY(queue) = false;          // for the present still picture
    Timer idleTimer OWNED_BY(queue);                 // pending while a capture runs

    AudioEncoder audioEncoder;  // used on the audio queue
};

}  // namespace orvel
