#pragma once

#include <memory>
#include <string>

#include "OrvelAgent/Platform/EventPoster.h"
#include "OrvelKit/Base/Defaults.h"
#include "OrvelKit/Base/SerialQueue.h"

namespace orvel {

class InputWorker;

// Posts through the XTEST extension of an X server. What waits for the server does so on
// "orvel.input", a queue of its own, where it connects, and connects again when the server has gone
// away and come back; events of the meantime are lost. What comes faster than the server takes it
// is bounded as InputBacklog.h says. One poster at a time for an X server.
//
// Its destructor waits for the server until everything is released, but no longer than a second.
class LinuxEventPoster : public EventPoster {
public:
    // `display` as in $DISPLAY; empty stands for what that says. `defaults` outlives the poster.
    explicit LinuxEventPoster(Defaults& defaults, std::string display = {});
    ~LinuxEventPoster() override;

    void postMotion(Motion motion, Point to, std::int64_t deltaX, std::int64_t deltaY) override;
    void postButton(MouseButton button, bool down, Point at, std::int64_t clicks) override;
    void postScroll(std::int32_t dx, std::int32_t dy, ScrollPhase phase) override;
    void postKey(std::uint16_t code, bool down, std::optional<std::uint32_t> flags) override;
    void postText(std::u16string_view units) override;
    void releaseAll() override;

    std::optional<Point> pointerLocation() override;
    std::optional<Area> displayBounds(std::optional<std::uint32_t> displayID) override;

private:
    void post(struct InputEvent event);
    void refresh();

    Defaults& defaults;
    std::unique_ptr<SerialQueue> queue;
    std::shared_ptr<InputWorker> worker;
    MonotonicTime lastRefresh;
};

}  // namespace orvel
