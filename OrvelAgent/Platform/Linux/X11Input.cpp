#include "OrvelAgent/Platform/Linux/X11Input.h"

#include <xcb/randr.h>
#include <xcb/xtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <utility>

namespace orvel {

namespace {

// Virtual codes of the Mac's Command keys.
constexpr std::uint16_t rightCommand = 54, leftCommand = 55;

std::int16_t pixel(double coordinate) {
    return static_cast<std::int16_t>(std::clamp(std::floor(coordinate), -32'768.0, 32'767.0));
}

}  // namespace

X11Input::X11Input(const std::string& display) : x11(display), watch(x11), keyboard(x11) {
    if (!x11.extension(xcb_test_id)) throw X11Failure("the X server lacks the XTEST extension");
    if (const auto* randr = x11.extension(xcb_randr_id)) {
        layoutEvent = randr->first_event;
        xcb_randr_select_input(x11.get(), x11.root(),
                               XCB_RANDR_NOTIFY_MASK_SCREEN_CHANGE |
                                   XCB_RANDR_NOTIFY_MASK_CRTC_CHANGE |
                                   XCB_RANDR_NOTIFY_MASK_OUTPUT_CHANGE);
    }
    look();
}

std::optional<Duration> X11Input::post(InputEvent& event) {
    if (const auto* moved = std::get_if<InputEvent::Motion>(&event.what)) {
        motion(moved->to);
    } else if (const auto* pressed = std::get_if<InputEvent::Button>(&event.what)) {
        button(*pressed);
    } else if (const auto* scrolled = std::get_if<InputEvent::Scroll>(&event.what)) {
        scroll(*scrolled);
    } else if (const auto* stroke = std::get_if<InputEvent::Key>(&event.what)) {
        key(*stroke);
    } else if (std::holds_alternative<InputEvent::ReleaseAll>(event.what)) {
        releaseAll();
    }
    return std::nullopt;
}

void X11Input::flush() const {
    xcb_flush(x11.get());
    if (!x11.isAlive()) throw X11Failure("the connection to the X server is lost");
}

void X11Input::end() {
    releaseAll();
    keyboard.state();  // answered after all that
}

bool X11Input::readEvents() {
    bool isDue = false;
    while (const auto event = x11.pollEvent()) {
        const int type = event->response_type & 0x7F;
        if (layoutEvent && (type == layoutEvent + XCB_RANDR_SCREEN_CHANGE_NOTIFY ||
                            type == layoutEvent + XCB_RANDR_NOTIFY)) {
            areMonitorsOld = isDue = true;
        } else if (!keyboard.handle(*event)) {
            isDue = watch.handle(*event) || isDue;
        }
    }
    return isDue;
}

bool X11Input::look() {
    try {
        if (std::exchange(areMonitorsOld, false)) known = readMonitors(x11);
        return watch.look();
    } catch (const X11Refusal&) {
        // Monitors come and go while they are looked at.
        areMonitorsOld = true;
        return true;
    }
}

void X11Input::fake(std::uint8_t type, std::uint8_t detail) const {
    xcb_test_fake_input(x11.get(), type, detail, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
}

void X11Input::motion(EventPoster::Point to) {
    constexpr std::uint8_t absolute = 0;
    const std::int16_t x = pixel(to.x), y = pixel(to.y);
    xcb_test_fake_input(x11.get(), XCB_MOTION_NOTIFY, absolute, XCB_CURRENT_TIME, x11.root(), x, y,
                        0);
    watch.setPlace({x, y});
}

void X11Input::button(const InputEvent::Button& event) {
    const std::uint8_t number = event.button == MouseButton::left ? 1 : 3;
    const auto held = std::find(buttons.begin(), buttons.end(), number);
    if (event.down == (held != buttons.end())) return;
    motion(event.at);
    if (event.down) {
        buttons.push_back(number);
    } else {
        buttons.erase(held);
    }
    fake(event.down ? XCB_BUTTON_PRESS : XCB_BUTTON_RELEASE, number);
}

void X11Input::scroll(const InputEvent::Scroll& event) {
    const auto clicks = wheel.add(event.dx, event.dy, event.phase);
    click(clicks.up > 0 ? 4 : 5, std::abs(clicks.up));
    click(clicks.left > 0 ? 6 : 7, std::abs(clicks.left));
}

void X11Input::click(std::uint8_t physicalButton, int times) const {
    for (int i = 0; i < times; ++i) {
        fake(XCB_BUTTON_PRESS, physicalButton);
        fake(XCB_BUTTON_RELEASE, physicalButton);
    }
}

std::vector<ModifierKey> X11Input::modifiersFor(std::uint32_t flags, bool commandIsSuper) {
    const std::pair<std::uint32_t, ModifierRole> roles[] = {
        {EventPoster::shiftFlag, ModifierRole::shift},
        {EventPoster::controlFlag, ModifierRole::control},
        {EventPoster::alternateFlag, ModifierRole::alternate},
        {EventPoster::commandFlag, commandIsSuper ? ModifierRole::super : ModifierRole::control}};
    std::vector<ModifierKey> wanted;
    for (const auto& [flag, role] : roles) {
        const auto found = flags & flag ? keyboard.layout().modifier(role) : std::nullopt;
        if (found && std::find(wanted.begin(), wanted.end(), *found) == wanted.end())
            wanted.push_back(*found);
    }
    return wanted;
}

std::optional<KeyCodeX> X11Input::codeFor(const InputEvent::Key& event) {
    if ((event.code == leftCommand || event.code == rightCommand) && !event.commandIsSuper) {
        const auto control = keyboard.layout().modifier(ModifierRole::control);
        return control ? std::optional(control->code) : std::nullopt;
    }
    return keyboard.codeAt(event.code);
}

void X11Input::key(const InputEvent::Key& event) {
    if (!event.down) return keyboard.send(keys.release(event.code));
    const auto code = codeFor(event);
    if (!code) return;
    std::optional<std::vector<ModifierKey>> modifiers;
    if (event.flags) modifiers = modifiersFor(*event.flags, event.commandIsSuper);
    keyboard.send(keys.press(event.code, *code, modifiers, keyboard.state().held,
                             keyboard.layout().maskOf(*code)));
}

void X11Input::releaseAll() {
    for (const auto number : std::exchange(buttons, {}))
        fake(XCB_BUTTON_RELEASE, number);
    keyboard.send(keys.releaseAll());
}

}  // namespace orvel
