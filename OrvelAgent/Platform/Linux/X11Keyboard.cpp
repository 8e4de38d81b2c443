#include "OrvelAgent/Platform/Linux/X11Keyboard.h"

#include <xcb/xtest.h>
#include <xkbcommon/xkbcommon-x11.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "OrvelAgent/Platform/Linux/PhysicalKeys.h"
#include "OrvelAgent/Platform/Linux/XkbHeader.h"

namespace orvel {

namespace {

constexpr int evdevOffset = 8;

// While it lives, the server serves nobody else.
class ServerGrab {
public:
    explicit ServerGrab(const X11Connection& connection)
        : x11(connection), number(xcb_grab_server(x11.get()).sequence) {}
    ~ServerGrab() {
        xcb_ungrab_server(x11.get());
        xcb_flush(x11.get());
    }
    ServerGrab(const ServerGrab&) = delete;
    ServerGrab& operator=(const ServerGrab&) = delete;

    std::uint32_t sequence() const { return number; }

private:
    const X11Connection& x11;
    const std::uint32_t number;
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
    const bool isOurs = event.full_sequence - firstRequest <= lastRequest - firstRequest;
    if (event.pad0 == XCB_XKB_MAP_NOTIFY && isOurs) return true;
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
    std::vector<KeyAssignment> borrowed;
    std::copy_if(assigned.begin(), assigned.end(), std::back_inserter(borrowed),
                 [](const KeyAssignment& each) { return each.symbol != 0; });
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

void X11Keyboard::takeBack(const std::vector<KeyAssignment>& assignments) {
    std::vector<KeyAssignment> empty;
    for (const auto& assignment : assignments) {
        if (assignment.symbol == 0 || layout().assignmentOf(assignment.code) != assignment)
            continue;
        assigned[assignment.code] = assignment;
        empty.push_back({assignment.code});
    }
    assign(empty);
    if (!empty.empty()) current.reset();
}

// What programs see is the table of the keyboard used last, and each has one of its own, perhaps
// for another layout. The virtual one comes first.
std::vector<X11Keyboard::Table> X11Keyboard::readTables(KeySymTable::Range range) const {
    std::vector<std::uint16_t> keyboards{devices.keyboard()};
    for (const auto other : devices.otherKeyboards())
        keyboards.push_back(other);
    keyboards.push_back(XCB_XKB_ID_USE_CORE_KBD);
    std::vector<xcb_xkb_get_map_cookie_t> questions;
    for (const auto keyboard : keyboards)
        questions.push_back(KeySymTable::ask(x11, keyboard, range));
    std::vector<Table> tables;
    for (std::size_t i = 0; i < keyboards.size(); ++i) {
        try {
            tables.push_back({keyboards[i], KeySymTable(*x11.reply<xcb_xkb_get_map_reply>(
                                                questions[i], "XkbGetMap"))});
        } catch (const X11Refusal&) {
            // Others may have been unplugged.
            if (keyboards[i] == devices.keyboard()) throw;
        }
    }
    // What is written to the master, all its keyboards get, and each tells of it once.
    const auto& master = tables.back();
    const bool areAlike = std::all_of(tables.begin(), tables.end(), [&](const Table& each) {
        return each.symbols == master.symbols;
    });
    if (areAlike) return {master};
    // One that is written to a keyboard, the master gets if that was used last.
    tables.pop_back();
    return tables;
}

void X11Keyboard::write(const std::vector<Table>& tables) const {
    std::vector<std::pair<const Table*, xcb_void_cookie_t>> sent;
    for (const auto& table : tables) {
        if (table.changed.empty()) continue;
        const auto [lowest, highest] =
            std::minmax_element(table.changed.begin(), table.changed.end());
        sent.emplace_back(&table, table.symbols.write(x11, table.keyboard, {*lowest, *highest}));
    }
    for (const auto& [table, request] : sent) {
        try {
            x11.check(request, "XkbSetMap");
        } catch (const X11Refusal&) {
            // Some key in between is one that the server would take from nobody. Or the keyboard
            // was unplugged, and the following is refused, too.
            for (const auto code : table->changed) {
                const auto alone = table->symbols.write(x11, table->keyboard, {code, code});
                xcb_discard_reply(x11.get(), alone.sequence);
            }
        }
    }
}

void X11Keyboard::assign(const std::vector<KeyAssignment>& assignments) {
    if (assignments.empty()) return;
    const auto [lowest, highest] = std::minmax_element(
        assignments.begin(), assignments.end(),
        [](const KeyAssignment& a, const KeyAssignment& b) { return a.code < b.code; });
    const ServerGrab grab(x11);
    auto tables = readTables({lowest->code, highest->code});
    auto next = assigned;
    for (auto& table : tables) {
        for (const auto& wanted : assignments) {
            const auto& before = assigned[wanted.code];
            const bool isFree = table.symbols.has({wanted.code}) ||
                                (before.symbol != 0 && table.symbols.has(before));
            if (isFree && !table.symbols.has(wanted)) {
                table.symbols.set(wanted);
                table.changed.push_back(wanted.code);
            }
            if (&table == &tables.front()) next[wanted.code] = isFree ? wanted : KeyAssignment{};
        }
    }
    write(tables);
    assigned = std::move(next);
    firstRequest = grab.sequence();
    lastRequest = xcb_no_operation(x11.get()).sequence;
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
