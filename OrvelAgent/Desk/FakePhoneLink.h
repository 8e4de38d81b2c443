#pragma once

#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "OrvelAgent/Core/PhoneLink.h"
#include "OrvelKit/Wire/Files.h"

namespace orvel {

// A phone's connection for tests: keeps what it is given. File frames are sent at once, or, while
// it is stalled, when the test lets them go.
class FakePhoneLink : public PhoneLink {
public:
    std::vector<Control> controls;
    std::vector<FileFrame> fileFrames;  // sent ones
    bool isStalled = false;
    bool isClosed = false;
    std::optional<Rejection> rejection;

    // Sends the oldest `count` file frames that wait.
    void letGo(std::size_t count) {
        for (; count > 0 && !waiting.empty(); --count) {
            auto [frame, completion] = std::move(waiting.front());
            waiting.pop_front();
            backlog -= static_cast<std::int64_t>(frame.payloadLength());
            fileFrames.push_back(FileFrame::decode(std::as_const(frame).payload()));
            if (completion) completion();
        }
    }
    std::size_t framesWaiting() const { return waiting.size(); }

    bool isAuthenticated() const override { return authenticated; }
    void setAuthenticated(bool value) override { authenticated = value; }
    const std::string& name() const override { return phoneName; }
    void setName(const std::string& value) override { phoneName = value; }
    std::optional<std::string> deviceID() const override { return "aaaaaaaaaaaaaaaa"; }
    bool wantsEncodedVideo() const override { return true; }
    bool isInternet() const override { return false; }
    std::size_t longestControl() const override { return FrameBuffer::longestSealed; }
    std::int64_t fileBacklog() const override { return backlog; }
    void sendAudio(const AudioPacket&) override {}
    void sendControl(const Control& control) override { controls.push_back(control); }
    void sendFile(FrameBuffer frame, UniqueFunction<void()> completion) override {
        backlog += static_cast<std::int64_t>(frame.payloadLength());
        waiting.emplace_back(std::move(frame), std::move(completion));
        if (!isStalled) letGo(1);
    }
    void sendVideo(FrameBuffer, bool, UniqueFunction<void()> completion) override {
        if (completion) completion();
    }
    void reject(Rejection reason) override { rejection = reason; }
    void close() override { isClosed = true; }

private:
    bool authenticated = true;
    std::string phoneName;
    std::int64_t backlog = 0;
    std::deque<std::pair<FrameBuffer, UniqueFunction<void()>>> waiting;
};

}  // namespace orvel
