#pragma once

#include <memory>
#include <string>

namespace orvel {

// Shows notices on the desktop. Any thread; no call waits for another program, and what cannot be
// shown is lost without a word: whoever posts goes on the same.
class Notifier {
public:
    struct Notification {
        std::string identifier;  // a later one with the same takes this one's place
        std::string title;
        std::string body;  // plain text, no markup
        bool operator==(const Notification&) const = default;
    };

    virtual ~Notifier() = default;
    // Asks the user for alerts with sound, where the system has such a question and has not put it
    // before; else does nothing.
    virtual void requestPermission() = 0;
    // At once, with the default sound.
    virtual void post(Notification notification) = 0;

    static std::unique_ptr<Notifier> create();
};

}  // namespace orvel
