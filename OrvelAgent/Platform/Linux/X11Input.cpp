#include "OrvelAgent/Platform/Linux/X11Input.h"

#include <xcb/xtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <utility>

namespace orvel {

namespace {

// Virtual codes of the Mac's Command keys.
constexpr std::uint16_t rightCommand = 54, leftCommand = 55;

// How long keys stay lent to characters after the last of them was typed: each change of the table
// costs every program on the desktop. When the phone has gone, just long enough for slow ones to
// have seen the last of them.
constexpr Duration keepWhileTyping = std::chrono::minutes(5),
                   keepWhenLeft = std::chrono::seconds(2);

std::int16_t pixel(double coordinate) {
    return static_cast<std::int16_t>(std::clamp(std::floor(coordinate), -32'768.0, 32'767.0));
}

}  // namespace

X11Input::X11Input(const std::string& display)
    : x11(display),
      monitorEvents(x11),
      watch(x11),
      devices(x11),
      record(x11, display),
      repeat(x11, devices),
      keyboard(x11, devices),
      // Monitors that somebody divides by hand are told of there.
      ping(x11, XCB_EVENT_MASK_STRUCTURE_NOTIFY),
      typer(keyboard, keys, ping, [this] { writeRecord(); }),
      keepLent(keepWhileTyping) {
    if (!x11.extension(xcb_test_id)) throw X11Failure("the X server lacks the XTEST extension");
    readButtonMap();
    recover();
    look();
}

// A predecessor may have been killed.
void X11Input::recover() {
    const auto isIn = [](const auto& list, auto number) {
        return std::find(list.begin(), list.end(), number) != list.end();
    };
    const auto left = record.found();
    if (!left.keys.empty()) {
        // Releasing what is not down there would release what the user holds.
        for (const auto code : devices.keysDown()) {
            if (isIn(left.keys, code)) keyboard.send({code, false});
        }
    }
    if (!left.buttons.empty()) {
        for (const auto number : devices.buttonsDown()) {
            if (isIn(left.buttons, number)) fake(XCB_BUTTON_RELEASE, number);
        }
    }
    keyboard.takeBack(left.assigned);
    if (left.hasSuspendedRepeat) repeat.recover();
    writeRecord();
}

void X11Input::writeRecord() {
    InputRecord::Content content{keys.codes(), {}, typer.lent(), repeat.isSuspended()};
    for (const auto& button : buttons) {
        if (button) content.buttons.push_back(*button);
    }
    record.write(content);
}

std::optional<MonotonicTime> X11Input::post(InputEvent& event, MonotonicTime now) {
    if (const auto* moved = std::get_if<InputEvent::Motion>(&event.what)) {
        motion(moved->to);
    } else if (const auto* pressed = std::get_if<InputEvent::Button>(&event.what)) {
        button(*pressed);
    } else if (const auto* scrolled = std::get_if<InputEvent::Scroll>(&event.what)) {
        scroll(*scrolled);
    } else if (const auto* stroke = std::get_if<InputEvent::Key>(&event.what)) {
        key(*stroke);
    } else if (auto* text = std::get_if<InputEvent::Text>(&event.what)) {
        typer.add(std::exchange(text->units, {}));
        keepLent = keepWhileTyping;
        return typer.type(now);
    } else if (std::holds_alternative<InputEvent::ReleaseAll>(event.what)) {
        releaseAll();
    }
    return std::nullopt;
}

void X11Input::flush() {
    writeRecord();
    xcb_flush(x11.get());
    if (!x11.isAlive()) throw X11Failure("the connection to the X server is lost");
}

std::optional<MonotonicTime> X11Input::tidyDue() const {
    const auto last = typer.lastUse();
    return last ? std::optional(*last + keepLent) : std::nullopt;
}

void X11Input::tidy() {
    ping.stop();
    typer.giveBack();
}

void X11Input::finish() {
    flush();
    keyboard.state();  // answered after all that
}

X11Input::News X11Input::readEvents() {
    News news;
    while (const auto event = x11.pollEvent()) {
        const std::uint8_t type = event->response_type & 0x7F;
        const bool isRoot =
            type == XCB_CONFIGURE_NOTIFY &&
            reinterpret_cast<const xcb_configure_notify_event_t&>(*event).window == x11.root();
        if (monitorEvents.contain(type) || isRoot) {
            areMonitorsOld = news.toLookAt = true;
        } else if (type == XCB_MAPPING_NOTIFY) {
            const auto& change = reinterpret_cast<const xcb_mapping_notify_event_t&>(*event);
            if (change.request == XCB_MAPPING_POINTER) readButtonMap();
        } else if (const auto read = ping.handle(*event)) {
            typer.markRead(*read);
            news.canTypeOn = true;
        } else if (watch.handle(*event)) {
            news.toLookAt = true;
        } else if (!repeat.handle(*event)) {
            keyboard.handle(*event);
        }
    }
    return news;
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
    const std::size_t index = event.button == MouseButton::left ? 0 : 1;
    if (event.down == buttons[index].has_value()) return;
    if (watch.place() != PointerWatch::Place{pixel(event.at.x), pixel(event.at.y)})
        motion(event.at);
    if (event.down) {
        // Remembered, as the user may swap them meanwhile.
        buttons[index] = physical(event.button == MouseButton::left ? 1 : 3);
        fake(XCB_BUTTON_PRESS, *buttons[index]);
    } else {
        fake(XCB_BUTTON_RELEASE, *std::exchange(buttons[index], std::nullopt));
    }
}

void X11Input::scroll(const InputEvent::Scroll& event) {
    const auto clicks = wheel.add(event.dx, event.dy, event.phase);
    click(clicks.up > 0 ? 4 : 5, std::abs(clicks.up));
    click(clicks.left > 0 ? 6 : 7, std::abs(clicks.left));
}

void X11Input::readButtonMap() {
    const auto answer = x11.reply<xcb_get_pointer_mapping_reply>(xcb_get_pointer_mapping(x11.get()),
                                                                 "GetPointerMapping");
    const auto* map = xcb_get_pointer_mapping_map(answer.get());
    buttonMap.assign(map, map + answer->map_len);
}

// The button to press for one that programs are to see: a left-handed user has swapped them.
std::uint8_t X11Input::physical(std::uint8_t logicalButton) const {
    const auto found = std::find(buttonMap.begin(), buttonMap.end(), logicalButton);
    return found == buttonMap.end() ? logicalButton
                                    : static_cast<std::uint8_t>(found - buttonMap.begin() + 1);
}

void X11Input::click(std::uint8_t logicalButton, int times) const {
    const std::uint8_t physicalButton = physical(logicalButton);
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
    typer.endText();
    if (!event.down) return keyboard.send(keys.release(event.code));
    repeat.suspend();
    const auto code = codeFor(event);
    if (!code) return;
    std::optional<std::vector<ModifierKey>> modifiers;
    if (event.flags) modifiers = modifiersFor(*event.flags, event.commandIsSuper);
    keyboard.send(keys.press(event.code, *code, modifiers, keyboard.state().held,
                             keyboard.layout().maskOf(*code)));
}

void X11Input::releaseAll() {
    typer.endText();
    keepLent = keepWhenLeft;
    repeat.resume();
    for (auto& button : buttons) {
        if (const auto held = std::exchange(button, std::nullopt)) fake(XCB_BUTTON_RELEASE, *held);
    }
    keyboard.send(keys.releaseAll());
}

}  // namespace orvel
