#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "OrvelAgent/Platform/CompressionSession.h"

namespace orvel {

// All sessions of one factory: the test's end of them. It may outlive them; the factory and the
// sessions hold it. The fields are for a test whose queues are quiet.
class FakeCompression : public std::enable_shared_from_this<FakeCompression> {
public:
    struct Encoded {
        int session;  // 1, 2, ...
        std::shared_ptr<const PixelBuffer> image;
        MonotonicTime time;
        bool forcedKeyframe;
    };

    // What the sessions do.
    std::int32_t createStatus = 0;  // of the next session; not 0: none is made
    std::int32_t encodeStatus = 0;  // what encode() returns; not 0: nothing comes out
    bool holdsSamples = false;      // they wait for release() or completeFrames()
    std::function<void(CompressionSession::Sample&)> alter;  // the last word on each sample

    // Everything as it happened: "create 1280x720 lowLatency", "realTime true", "prepare",
    // "encode 1" (sequence), "encode 1 keyframe", "complete", "invalidate".
    std::vector<std::string> calls;
    std::vector<Encoded> encoded;
    int sessions = 0, alive = 0;

    CompressionSession::Factory factory();

    // The values last set, by the name of the property, of the newest session.
    std::map<std::string, std::string> properties;

    void release() {
        for (auto& sample : std::exchange(waiting, {}))
            sample();
    }

private:
    friend class FakeCompressionSession;
    std::vector<std::function<void()>> waiting;
};

// Each picture becomes one NAL unit of two bytes, its type (5 or 1) and the low byte of its
// sequence number; the first one and those forced are keyframes, with parameter sets {67 01} and
// {68 02}.
class FakeCompressionSession : public CompressionSession {
public:
    explicit FakeCompressionSession(std::shared_ptr<FakeCompression> shared)
        : all(std::move(shared)), number(++all->sessions) {
        ++all->alive;
    }
    ~FakeCompressionSession() override { --all->alive; }

    std::int32_t set(Property property, const Value& value) override {
        static const char* const names[] = {
            "realTime",       "profileLevel",      "allowFrameReordering",
            "averageBitRate", "expectedFrameRate", "maxKeyFrameIntervalDuration",
            "quality"};
        const std::string name = names[static_cast<int>(property)];
        all->properties[name] = text(value);
        all->calls.push_back(name + " " + text(value));
        return 0;
    }

    std::int32_t prepare() override {
        all->calls.push_back("prepare");
        return 0;
    }

    std::int32_t encode(std::shared_ptr<const PixelBuffer> image, MonotonicTime time,
                        bool forceKeyframe, OutputHandler handler) override {
        all->calls.push_back("encode " + std::to_string(image->sequence) +
                             (forceKeyframe ? " keyframe" : ""));
        all->encoded.push_back({number, image, time, forceKeyframe});
        if (all->encodeStatus != 0) return all->encodeStatus;
        const bool isKeyframe = !std::exchange(begun, true) || forceKeyframe;
        const auto emit = [shared = all, sequence = image->sequence, time, isKeyframe,
                           handler = std::move(handler)] {
            const Bytes data = {0,
                                0,
                                0,
                                2,
                                static_cast<std::uint8_t>(isKeyframe ? 0x65 : 0x41),
                                static_cast<std::uint8_t>(sequence)};
            const Bytes sps = {0x67, 1}, pps = {0x68, 2};
            Sample sample;
            sample.notSync = !isKeyframe;
            sample.ptsMicros =
                std::chrono::duration_cast<std::chrono::microseconds>(time.time_since_epoch())
                    .count();
            sample.data = data;
            if (isKeyframe) sample.parameterSets = {sps, pps};
            if (shared->alter) shared->alter(sample);
            handler(sample);
        };
        if (all->holdsSamples) {
            all->waiting.push_back(emit);
        } else {
            emit();
        }
        return 0;
    }

    void completeFrames() override {
        all->calls.push_back("complete");
        all->release();
    }

    // Unlike a real one it leaves what waits where it is, so that a test can let it out too late.
    void invalidate() override { all->calls.push_back("invalidate"); }

private:
    static std::string text(const Value& value) {
        if (auto* flag = std::get_if<bool>(&value)) return *flag ? "true" : "false";
        if (auto* integer = std::get_if<std::int64_t>(&value)) return std::to_string(*integer);
        if (auto* words = std::get_if<std::string>(&value)) return *words;
        auto number = std::to_string(std::get<double>(value));  // "0.600000"
        return number.substr(0, number.find('.') + 2);
    }

    const std::shared_ptr<FakeCompression> all;
    const int number;
    bool begun = false;
};

inline CompressionSession::Factory FakeCompression::factory() {
    return [all = shared_from_this()](const CompressionSession::Specification& wanted) {
        all->calls.push_back("create " + std::to_string(wanted.width) + "x" +
                             std::to_string(wanted.height) +
                             (wanted.lowLatencyRateControl ? " lowLatency" : ""));
        CompressionSession::Created created{nullptr, all->createStatus};
        if (all->createStatus == 0) {
            all->properties.clear();
            created.session = std::make_unique<FakeCompressionSession>(all);
        }
        return created;
    };
}

}  // namespace orvel
