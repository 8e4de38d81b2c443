#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace orvel {

class X11Connection;

// Somebody at the keyboard of an XServer, which is another one than the virtual keyboard that
// programs press, and what the server says of its keyboards. Each call returns when the server has
// done it, and throws std::runtime_error when it refuses.
class XHands {
public:
    explicit XHands(const std::string& display);
    ~XHands();

    // By X keycode.
    void press(int code);
    void release(int code);
    // As another program does that posts keys and buttons, through the virtual devices.
    void post(int code, bool down);
    void postButton(int button, bool down);
    // As `setxkbmap` takes it, such as "us" or "us,tr(f)"; of all keyboards, or of this one.
    enum class Keyboards { all, own };
    void setLayout(const std::string& layout, Keyboards which = Keyboards::all);
    void chooseLayout(int group);
    // Of the mouse: which button is the first, the second, the third.
    void setPointerMap(const std::vector<std::uint8_t>& map);

    // What is down, by whomever, as programs see it: "37 b1".
    std::string down() const;
    bool isCapsLocked() const;
    // The whole table of keys as text, to be compared; as programs see it, or of this keyboard.
    std::string keyboardMap(Keyboards which = Keyboards::all) const;

private:
    void key(int code, bool down);
    void sync();

    const std::string display;
    const std::unique_ptr<X11Connection> x11;
    std::uint8_t inputEvent = 0;
    std::uint8_t keyboard = 0;
};

}  // namespace orvel
