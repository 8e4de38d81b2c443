#include "OrvelAgent/Platform/Linux/X11Keyboard.h"

#include <xcb/xtest.h>
#include <xkbcommon/xkbcommon-x11.h>

#include <algorithm>

#include "OrvelAgent/Platform/Linux/PhysicalKeys.h"
#include "OrvelAgent/Platform/Linux/XkbHeader.h"

namespace orvel {

namespace {

constexpr int evdevOffset = 8;

// Which keys an XKB event is about.
struct Range {
    int first, count;
};

}  // namespace

void X11Keyboard::Release::operator()(xkb_context* released) const {
    xkb_context_unref(released);
}

X11Keyboard::X11Keyboard(const X11Connection& connection, const VirtualDevices& virtualDevices)
    : x11(connection),
      devices(virtualDevices),
      context(xkb_context_new(XKB_CONTEXT_NO_DEFAULT_INCLUDES)) {
    if (!context || !xkb_x11_setup_xkb_extension(x11.get(), XKB_X11_MIN_MAJOR_XKB_VERSION,
                                                 XKB_X11_MIN_MINOR_XKB_VERSION,
                                                 XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS, nullptr,
                                                 nullptr, &xkbEvent, nullptr)) {
        throw X11Failure("the X server lacks the XKEYBOARD extension");
    }
    // What it finds odd in other people's keymaps is not for the log.
    xkb_context_set_log_level(context.get(), XKB_LOG_LEVEL_CRITICAL);
    constexpr std::uint16_t events = XCB_XKB_EVENT_TYPE_NEW_KEYBOARD_NOTIFY |
                                     XCB_XKB_EVENT_TYPE_MAP_NOTIFY |
                                     XCB_XKB_EVENT_TYPE_CONTROLS_NOTIFY;
    constexpr std::uint16_t parts = XCB_XKB_MAP_PART_KEY_TYPES | XCB_XKB_MAP_PART_KEY_SYMS |
                                    XCB_XKB_MAP_PART_MODIFIER_MAP | XCB_XKB_MAP_PART_KEY_ACTIONS |
                                    XCB_XKB_MAP_PART_VIRTUAL_MODS |
                                    XCB_XKB_MAP_PART_VIRTUAL_MOD_MAP;
    xcb_xkb_select_events(x11.get(), devices.keyboard(), events, 0, events, parts, parts, nullptr);
}

bool X11Keyboard::handle(const xcb_generic_event_t& event) {
    if ((event.response_type & 0x7F) != xkbEvent) return false;
    // All of XKB's events have their kind in the second byte.
    if (event.pad0 == XCB_XKB_MAP_NOTIFY) {
        const auto& change = reinterpret_cast<const xcb_xkb_map_notify_event_t&>(event);
        const auto isOurs = [&](Range range) {
            for (int code = range.first; code < range.first + range.count; ++code) {
                if (code > 255 || !assigned[static_cast<std::size_t>(code)]) return false;
            }
            return true;
        };
        const Range ranges[] = {{change.firstKeySym, change.nKeySyms},
                                {change.firstKeyAct, change.nKeyActs},
                                {change.firstModMapKey, change.nModMapKeys}};
        if (change.nKeySyms > 0 && std::all_of(std::begin(ranges), std::end(ranges), isOurs))
            return true;
    }
    current.reset();
    return true;
}

const KeyLayout& X11Keyboard::layout() {
    if (current) return *current;
    // What programs will have once a key is pressed there.
    const auto device = devices.keyboard() == XCB_XKB_ID_USE_CORE_KBD
                            ? xkb_x11_get_core_keyboard_device_id(x11.get())
                            : devices.keyboard();
    auto* keymap = xkb_x11_keymap_new_from_device(context.get(), x11.get(), device,
                                                  XKB_KEYMAP_COMPILE_NO_FLAGS);
    if (!keymap) throw X11Failure("the X server's keyboard layout cannot be read");
    std::vector<KeyCodeX> borrowed;
    for (std::size_t code = 0; code < assigned.size(); ++code) {
        if (assigned[code]) borrowed.push_back(static_cast<KeyCodeX>(code));
    }
    ++number;
    return current.emplace(keymap, borrowed);
}

KeyLayout::State X11Keyboard::state() const {
    const auto answer = x11.reply<xcb_xkb_get_state_reply>(
        xcb_xkb_get_state(x11.get(), XCB_XKB_ID_USE_CORE_KBD), "XkbGetState");
    return {answer->baseMods, answer->lockedMods, answer->group};
}

std::optional<KeyCodeX> X11Keyboard::codeAt(std::uint16_t virtualCode) {
    const auto key = physicalKey(virtualCode);
    if (!key) return std::nullopt;
    if (const auto code = layout().named(key->name)) return code;
    // A server whose table has no names for places: today's have evdev's codes.
    if (layout().named("AC01")) return std::nullopt;
    return static_cast<KeyCodeX>(key->evdev + evdevOffset);
}

void X11Keyboard::send(const KeyAction& action) const {
    xcb_test_fake_input(x11.get(), action.down ? XCB_KEY_PRESS : XCB_KEY_RELEASE, action.code,
                        XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
}

void X11Keyboard::send(const std::vector<KeyAction>& actions) const {
    for (const auto& action : actions)
        send(action);
}

void X11Keyboard::lock(ModifierMask modifiers, bool locked) const {
    xcb_xkb_latch_lock_state(x11.get(), XCB_XKB_ID_USE_CORE_KBD, modifiers, locked ? modifiers : 0,
                             false, 0, 0, false, 0);
}

void X11Keyboard::assign(std::vector<KeyAssignment> assignments) {
    std::sort(assignments.begin(), assignments.end(),
              [](const KeyAssignment& a, const KeyAssignment& b) { return a.code < b.code; });
    // A request for each run of neighbours: every change makes every program read the table again.
    for (auto run = assignments.begin(); run != assignments.end();) {
        std::vector<xcb_keysym_t> symbols;
        auto next = run;
        for (; next != assignments.end() && next->code - run->code == next - run; ++next) {
            symbols.insert(symbols.end(), {next->symbol, next->shifted});
            assigned[next->code] = next->symbol != 0;
        }
        xcb_change_keyboard_mapping(x11.get(), static_cast<std::uint8_t>(next - run), run->code, 2,
                                    symbols.data());
        run = next;
    }
}

std::vector<KeyCodeX> X11Keyboard::keysDown() const {
    const auto answer =
        x11.reply<xcb_query_keymap_reply>(xcb_query_keymap(x11.get()), "QueryKeymap");
    std::vector<KeyCodeX> down;
    for (int code = 8; code < 256; ++code) {
        if (answer->keys[code / 8] >> (code % 8) & 1) down.push_back(static_cast<KeyCodeX>(code));
    }
    return down;
}

}  // namespace orvel
