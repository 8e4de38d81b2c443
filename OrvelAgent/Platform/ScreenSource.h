#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "OrvelAgent/Media/AudioSamples.h"
#include "OrvelAgent/Media/PixelBuffer.h"
#include "OrvelKit/Base/SerialQueue.h"

namespace orvel {

// What the capture system said when it could not do something. For logs.
struct CaptureError {
    std::string description;
};

// The displays of this computer, and a capture of one of them, with the sound that the computer
// makes. It decides nothing: which display, which size and what to do with a still picture is
// ScreenStreamer's.
//
// Made with the queues "orvel.capture" and "orvel.audio". Every call is made on the first, every
// completion and handler but the sound's is called there, never from inside the call. One capture
// at a time: stop before the next start.
class ScreenSource {
public:
    struct DisplayDescription {
        std::uint32_t id = 0;
        std::string name;               // empty: the system has none for it
        double width = 0, height = 0;   // points
        std::optional<int> pixelWidth;  // of its current mode; nullopt when that cannot be read
        bool isMain = false;
    };
    struct DisplayList {
        std::vector<DisplayDescription> displays;  // may be empty
        std::optional<CaptureError> error;
    };

    struct Configuration {
        std::uint32_t displayID = 0;
        int width = 0, height = 0;  // pixels of the pictures, even; the source scales
        int framesPerSecond = 60;   // at most
        bool showsCursor = true;
        int queueDepth = 5;  // buffers in flight
        bool capturesAudio = true;
        int audioSampleRate = 48'000;  // Hz, as far as the system converts
        int audioChannels = 2;         // likewise
        bool excludesOwnAudio = true;  // what this process plays
    };

    enum class SampleStatus { complete, idle, blank, suspended, started, stopped };
    struct Sample {
        SampleStatus status = SampleStatus::complete;
        std::shared_ptr<const PixelBuffer> image;  // complete only
        std::optional<MonotonicTime> time;         // when the picture was taken
    };

    struct Handlers {
        // A picture, or that there is no new one: a still screen delivers one idle sample when it
        // comes to rest and then nothing.
        std::function<void(const Sample&)> onSample;
        // Sound, on the audio queue: the one handler that may still be called after stop() has
        // returned, until its completion. A computer that has none, or cannot give it, captures
        // the picture alone.
        std::function<void(const AudioSamples&)> onAudio;
        // The capture ended by itself: display unplugged, server gone, access withdrawn. Called
        // at most once; not after stop().
        std::function<void(std::optional<CaptureError>)> onStop;
    };

    virtual ~ScreenSource() = default;
    virtual void listDisplays(std::function<void(DisplayList)> completion) = 0;
    // nullopt: it runs. Handlers come only after that.
    virtual void start(const Configuration& configuration, Handlers handlers,
                       std::function<void(std::optional<CaptureError>)> completion) = 0;
    // Changes Configuration::capturesAudio of the capture started last; without one it does
    // nothing.
    virtual void setCapturesAudio(bool captures) = 0;
    // No handler but onAudio is called once this has returned, and none once it has completed.
    // Without a capture it just completes.
    virtual void stop(std::function<void()> completion) = 0;

    // This system's. Costs nothing until the first call.
    static std::unique_ptr<ScreenSource> create(SerialQueue& captureQueue, SerialQueue& audioQueue);
};

}  // namespace orvel
