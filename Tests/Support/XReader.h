#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "OrvelKit/Base/Clock.h"

namespace orvel {

// A program with one window over the whole screen and the keyboard's focus, which reads its events
// as they come, as programs with Xlib do, and notes what it received:
//
//     +a -a          a key by its keysym's name, pressed and released
//     +A:1 -A:1      the same with its modifiers, in hexadecimal: 1 Shift, 2 Lock, 4 Control, 8
//     Mod1 +b1@10,20      a button and where; +b4 to +b7 are the wheel m@10,20        the pointer
//     moved
class XReader {
public:
    // With a window manager the window can be one that it manages, once it has given it the focus.
    enum class Kind { unmanaged, managed };
    explicit XReader(const std::string& display,
                     Kind kind = Kind::unmanaged);  // throws std::runtime_error
    ~XReader();
    XReader(const XReader&) = delete;
    XReader& operator=(const XReader&) = delete;

    // All that came since the last call of this or of takeText(), in order, with spaces between.
    // Waits until the program has read everything that the server had sent before this call.
    std::string take();
    // What a text field would have taken, UTF-8.
    std::string takeText();
    // Hides and lets the focus follow the pointer, which it puts over the window at the top left as
    // soon as there is one. From then on it receives nothing.
    void yield();
    // The text so far; without waiting.
    std::string seenText();
    // When the last motion was seen, and where; for measurements.
    struct Motion {
        int x = 0, y = 0;
        MonotonicTime time;
    };
    Motion lastMotion();
    // When a key and a button were last seen to be pressed.
    struct Presses {
        MonotonicTime key, button;
    };
    Presses lastPresses();

private:
    struct Client;
    void run();
    void catchUp();

    const std::unique_ptr<Client> client;
    int marksSent = 0;
    std::mutex mutex;  // guards the following
    std::string notes, text;
    Motion motion;
    Presses presses;
    int marksSeen = 0;
    std::thread thread;
};

}  // namespace orvel
