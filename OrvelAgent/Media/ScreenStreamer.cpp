#include "OrvelAgent/Media/ScreenStreamer.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>

#include "OrvelAgent/Media/VideoEncoder.h"

using namespace std::chrono_literals;

namespace orvel {

namespace {

constexpr auto idleCheckInterval = 250ms;
constexpr auto idleAfter = 400ms;
constexpr double scaleWithoutMode = 2.0;
constexpr std::int64_t bitsPerPixel = 3;
constexpr std::int64_t minBitrate = 4'000'000, maxBitrate = 14'000'000;  // bits per second

using DisplayDescription = ScreenSource::DisplayDescription;

const DisplayDescription* chooseDisplay(const std::vector<DisplayDescription>& displays,
                                        std::optional<std::uint32_t> wantedID) {
    const auto find = [&](auto matches) -> const DisplayDescription* {
        const auto found = std::find_if(displays.begin(), displays.end(), matches);
        return found == displays.end() ? nullptr : &*found;
    };
    if (wantedID) {
        if (auto* display = find([&](auto& each) { return each.id == *wantedID; })) return display;
    }
    if (auto* display = find([](auto& each) { return each.isMain; })) return display;
    return displays.empty() ? nullptr : &displays.front();
}

std::vector<DisplayInfo> describe(const std::vector<DisplayDescription>& displays) {
    std::vector<DisplayInfo> all;
    for (const auto& display : displays) {
        all.push_back({display.id,
                       display.name.empty() ? "Ekran " + std::to_string(display.id) : display.name,
                       display.width, display.height});
    }
    return all;
}

struct PictureSize {
    int width, height;  // pixels, even
};

PictureSize pictureSize(const DisplayDescription& display, int maxPixels) {
    const double scale = display.pixelWidth && display.width > 0
                             ? *display.pixelWidth / display.width
                             : scaleWithoutMode;
    double width = scale * display.width, height = scale * display.height;
    const double longer = std::max(width, height);
    if (longer > maxPixels) {
        // Multiplied first: the longer edge comes out as maxPixels exactly.
        width = width * maxPixels / longer;
        height = height * maxPixels / longer;
    }
    const auto even = [](double length) {
        return std::max(2, 2 * static_cast<int>(std::floor(length / 2)));
    };
    return {even(width), even(height)};
}

std::int64_t bitrateFor(const PictureSize& size) {
    return std::clamp(bitsPerPixel * size.width * size.height, minBitrate, maxBitrate);
}

const ScreenStreamer::StartFailure superseded{ScreenStreamer::StartFailure::Reason::superseded,
                                              "superseded"};

}  // namespace

std::string ScreenStreamer::StreamerError::description() const {
    return "Paylaşılacak ekran bulunamadı.";
}

ScreenStreamer::ScreenStreamer(SerialQueue& captureQueue, SerialQueue& soundQueue,
                               std::unique_ptr<ScreenSource> newSource,
                               CompressionSession::Factory factory)
    : queue(captureQueue),
      audioQueue(soundQueue),
      source(std::move(newSource)),
      encoder(std::make_shared<VideoEncoder>(captureQueue, std::move(factory))),
      audioEncoder(soundQueue) {
    audioEncoder.onPacket = [this](AudioPacket packet) {
        if (onAudio) onAudio(std::move(packet));
    };
}

ScreenStreamer::~ScreenStreamer() {
    // Source and encoder live on the queue, and end there.
    if (!queue.isCurrent())
        queue.post([held = std::pair(std::move(source), std::move(encoder))] {});
}

template <class Body>
auto ScreenStreamer::onQueue(Body body) {
    return [weak = weak_from_this(), body = std::move(body)](auto&&... arguments) {
        if (const auto self = weak.lock()) {
            body(*self, std::forward<decltype(arguments)>(arguments)...);
        }
    };
}

ScreenStreamer::CaptureID ScreenStreamer::start(std::optional<std::uint32_t> displayID,
                                                int maxPixels,
                                                std::function<void(StartResult)> completion) {
    const CaptureID id = ++lastGiven;
    if (!completion) completion = [](const StartResult&) {};
    StartRequest request{id, displayID, maxPixels, std::move(completion)};
    queue.post(onQueue([request = std::move(request)](ScreenStreamer& self) {
        self.queue.assertCurrent();
        // Two threads may have called in the other order than their tasks arrive.
        if (request.id < self.newest) return request.completion(superseded);
        self.newest = self.wanted = request.id;
        self.lastFrame.reset();
        if (const auto old = std::exchange(self.nextStart, request)) old->completion(superseded);
        self.reconcile();
    }));
    return id;
}

void ScreenStreamer::stop(CaptureID capture, std::function<void()> completion) {
    if (!completion) completion = [] {};
    queue.post(onQueue([capture, completion = std::move(completion)](ScreenStreamer& self) {
        self.queue.assertCurrent();
        if (capture == 0 || capture != self.wanted) return completion();
        self.wanted = 0;
        self.lastFrame.reset();
        self.stopCompletions.push_back(completion);
        if (const auto old = std::exchange(self.nextStart, std::nullopt)) {
            old->completion(superseded);
        }
        self.reconcile();
    }));
}

void ScreenStreamer::requestKeyframe() {
    // Requests come from outside, perhaps faster than pictures can be encoded.
    if (keyframeRequested.exchange(true)) return;
    queue.post(onQueue([](ScreenStreamer& self) {
        self.queue.assertCurrent();
        self.keyframeRequested = false;
        self.encoder->requestKeyframe();
        if (self.lastFrame && self.encodes) {
            self.encoder->encode(self.lastFrame->image, self.lastFrame->time);
        }
    }));
}

void ScreenStreamer::setEncodes(bool nowEncodes) {
    queue.post(onQueue([nowEncodes](ScreenStreamer& self) {
        self.queue.assertCurrent();
        self.encodes = nowEncodes;
    }));
}

void ScreenStreamer::setAudio(bool isOn) {
    audioOn = isOn;
    audioQueue.post(onQueue([](ScreenStreamer& self) { self.audioEncoder.reset(); }));
    queue.post(onQueue([](ScreenStreamer& self) {
        self.queue.assertCurrent();
        self.source->setCapturesAudio(self.audioOn);
    }));
}

void ScreenStreamer::setSink(Sink newSink) {
    queue.post(onQueue([newSink = std::move(newSink)](ScreenStreamer& self) {
        self.queue.assertCurrent();
        self.sink = newSink;
    }));
}

void ScreenStreamer::reconcile() {
    if (isChanging || (running != 0 && running == wanted)) return;
    if (running != 0) {
        isChanging = true;
        running = 0;
        forgetCapture();
        source->stop(onQueue([](ScreenStreamer& self) {
            self.queue.assertCurrent();
            self.isChanging = false;
            self.reconcile();
        }));
        return;
    }
    for (const auto& completion : std::exchange(stopCompletions, {}))
        completion();
    if (auto request = std::exchange(nextStart, std::nullopt)) {
        isChanging = true;
        listDisplays(std::move(*request));
    }
}

void ScreenStreamer::listDisplays(StartRequest request) {
    source->listDisplays(
        onQueue([request = std::move(request)](ScreenStreamer& self, const auto& list) {
            self.queue.assertCurrent();
            self.startCapture(request, list);
        }));
}

void ScreenStreamer::startCapture(StartRequest request, const ScreenSource::DisplayList& list) {
    using Reason = StartFailure::Reason;
    if (wanted != request.id) return finishStart(request, superseded);
    if (list.error)
        return finishStart(request, StartFailure{Reason::capture, list.error->description});
    const auto* chosen = chooseDisplay(list.displays, request.displayID);
    if (!chosen) {
        const StreamerError error{StreamerError::Code::noDisplay};
        return finishStart(request, StartFailure{Reason::noDisplay, error.description()});
    }
    const auto size = pictureSize(*chosen, request.maxPixels);
    const Display display{chosen->id, chosen->width, chosen->height,
                          size.width, size.height,   describe(list.displays)};

    encoder->onFormat = onFormat;
    encoder->onFrame = onFrame;
    if (const auto error = encoder->start(size.width, size.height, bitrateFor(size))) {
        return finishStart(request, StartFailure{Reason::encoder, error->description()});
    }

    ScreenSource::Configuration configuration;
    configuration.displayID = chosen->id;
    configuration.width = size.width;
    configuration.height = size.height;
    configuration.capturesAudio = audioOn;

    ScreenSource::Handlers handlers;
    handlers.onSample = onQueue([id = request.id](ScreenStreamer& self, const auto& sample) {
        self.queue.assertCurrent();
        self.receive(id, sample);
    });
    handlers.onAudio = onQueue([](ScreenStreamer& self, const AudioSamples& samples) {
        self.audioQueue.assertCurrent();
        self.receiveAudio(samples);
    });
    handlers.onStop = onQueue([id = request.id](ScreenStreamer& self, auto error) {
        self.queue.assertCurrent();
        self.sourceStopped(id, std::move(error));
    });
    source->start(
        configuration, std::move(handlers),
        onQueue([request, display](ScreenStreamer& self, const auto& error) {
            self.queue.assertCurrent();
            if (error) {
                self.finishStart(request, StartFailure{Reason::capture, error->description});
            } else {
                self.running = request.id;
                self.finishStart(request, display);
            }
        }));
}

void ScreenStreamer::finishStart(const StartRequest& request, StartResult result) {
    isChanging = false;
    if (wanted != request.id) {
        result = superseded;  // a capture that runs all the same is ended by reconcile()
    } else if (std::holds_alternative<StartFailure>(result)) {
        wanted = 0;
    }
    if (running == 0) {
        forgetCapture();
    } else if (running == wanted) {
        armIdleTimer();
    }
    request.completion(std::move(result));
    reconcile();
}

void ScreenStreamer::forgetCapture() {
    idleTimer.cancel();
    lastFrame.reset();
    sharpSent = false;
    encoder->stop();
}

void ScreenStreamer::receive(CaptureID capture, const ScreenSource::Sample& sample) {
    if (capture != wanted) return;
    if (sample.status != ScreenSource::SampleStatus::complete || !sample.image) return;
    lastFrame = Frame{sample.image, sample.time.value_or(MonotonicTime{}), queue.now()};
    sharpSent = false;
    if (encodes) encoder->encode(lastFrame->image, lastFrame->time);
    if (sink) sink(lastFrame->image);
}

void ScreenStreamer::receiveAudio(const AudioSamples& samples) {
    if (audioOn) audioEncoder.encode(samples);
}

void ScreenStreamer::sourceStopped(CaptureID capture, std::optional<CaptureError> error) {
    if (capture != running) return;
    running = 0;
    forgetCapture();
    const bool wasWanted = capture == wanted;
    if (wasWanted) {
        wanted = 0;
        if (onStop) onStop(capture, std::move(error));
    }
    reconcile();
}

void ScreenStreamer::armIdleTimer() {
    idleTimer = queue.after(idleCheckInterval, onQueue([](ScreenStreamer& self) {
                                self.queue.assertCurrent();
                                self.armIdleTimer();
                                self.checkIdle();
                            }));
}

void ScreenStreamer::checkIdle() {
    if (!lastFrame || queue.now() - lastFrame->arrivedAt <= idleAfter) return;
    if (!sharpSent && encodes) {
        sharpSent = true;
        encoder->encodeSharp(lastFrame->image);
    }
    if (sink) sink(lastFrame->image);
}

}  // namespace orvel
