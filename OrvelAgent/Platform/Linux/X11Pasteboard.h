#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "OrvelAgent/Platform/Pasteboard.h"

namespace orvel {

class X11Clipboard;

// The clipboard of an X desktop. All that may have to wait for the X server happens on
// "orvel.clipboard"; the main queue only hears of it. Counts the copies of other programs, not its
// own writes; that a text's program ends, and the text with it, is no copy. A program that keeps
// texts beyond that and takes the clipboard for it makes one.
//
// X keeps no text: what was written here goes with this object, unless the desktop has a clipboard
// manager to leave it to, for which the destructor may take a second.
class X11Pasteboard : public Pasteboard {
public:
    // `display` as in $DISPLAY; empty stands for what that says.
    explicit X11Pasteboard(SerialQueue& mainQueue, std::string display = {});
    ~X11Pasteboard() override;

    std::int64_t changeCount() override;
    void readString(std::size_t maxBytes,
                    std::function<void(std::optional<std::string>)> completion) override;
    std::int64_t setString(std::string text) override;

private:
    // The main queue's; shared so that it is known when it has gone.
    struct Front {
        std::int64_t count = 0;
        std::uint64_t writes = 0;
    };

    SerialQueue& mainQueue;
    const std::shared_ptr<Front> front;
    std::unique_ptr<X11Clipboard> clipboard OWNED_BY(queue);
    SerialQueue queue{"orvel.clipboard"};
};

}  // namespace orvel
