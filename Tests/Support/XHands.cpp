#include "Tests/Support/XHands.h"

#include <xcb/xinput.h>
#include <xcb/xtest.h>

#include <string_view>

#include "OrvelAgent/Platform/Linux/X11Connection.h"
#include "OrvelAgent/Platform/Linux/XkbHeader.h"
#include "Tests/Support/BackgroundProcess.h"
#include "Tests/Support/TemporaryFolder.h"

namespace orvel {

XHands::XHands(const std::string& name)
    : display(name), x11(std::make_unique<X11Connection>(name)) {
    const auto* input = x11->extension(xcb_input_id);
    if (!input) throw std::runtime_error("no input devices");
    inputEvent = input->first_event;
    x11->reply<xcb_input_xi_query_version_reply>(xcb_input_xi_query_version(x11->get(), 2, 2),
                                                 "XIQueryVersion");
    x11->reply<xcb_xkb_use_extension_reply>(xcb_xkb_use_extension(x11->get(), 1, 0),
                                            "XkbUseExtension");
    const auto devices = x11->reply<xcb_input_xi_query_device_reply>(
        xcb_input_xi_query_device(x11->get(), XCB_INPUT_DEVICE_ALL), "XIQueryDevice");
    for (auto each = xcb_input_xi_query_device_infos_iterator(devices.get()); each.rem;
         xcb_input_xi_device_info_next(&each)) {
        const std::string_view device(
            xcb_input_xi_device_info_name(each.data),
            static_cast<std::size_t>(xcb_input_xi_device_info_name_length(each.data)));
        if (device == "Xvfb keyboard") keyboard = static_cast<std::uint8_t>(each.data->deviceid);
    }
    if (keyboard == 0) throw std::runtime_error("no keyboard");
}

XHands::~XHands() = default;

void XHands::sync() {
    x11->reply<xcb_get_input_focus_reply>(xcb_get_input_focus(x11->get()), "GetInputFocus");
    while (const auto event = x11->pollEvent()) {
        if (event->response_type == 0) {
            throw X11Refusal("a test's request",
                             reinterpret_cast<const xcb_generic_error_t&>(*event).error_code);
        }
    }
}

void XHands::key(int code, bool down) {
    const int type =
        inputEvent + (down ? XCB_INPUT_DEVICE_KEY_PRESS : XCB_INPUT_DEVICE_KEY_RELEASE);
    xcb_test_fake_input(x11->get(), static_cast<std::uint8_t>(type),
                        static_cast<std::uint8_t>(code), XCB_CURRENT_TIME, XCB_NONE, 0, 0,
                        keyboard);
    sync();
}

void XHands::press(int code) {
    key(code, true);
}

void XHands::release(int code) {
    key(code, false);
}

void XHands::post(int code, bool down) {
    xcb_test_fake_input(x11->get(), down ? XCB_KEY_PRESS : XCB_KEY_RELEASE,
                        static_cast<std::uint8_t>(code), XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
    sync();
}

void XHands::postButton(int button, bool down) {
    xcb_test_fake_input(x11->get(), down ? XCB_BUTTON_PRESS : XCB_BUTTON_RELEASE,
                        static_cast<std::uint8_t>(button), XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
    sync();
}

void XHands::setLayout(const std::string& layout, Keyboards which) {
    std::vector<std::string> command{"setxkbmap", "-display", display};
    if (which == Keyboards::own)
        command.insert(command.end(), {"-device", std::to_string(keyboard)});
    const auto open = layout.find('(');
    if (open == std::string::npos || layout.find(',') != std::string::npos) {
        command.insert(command.end(), {"-layout", layout});
    } else {
        command.insert(command.end(), {"-layout", layout.substr(0, open), "-variant",
                                       layout.substr(open + 1, layout.size() - open - 2)});
    }
    BackgroundProcess program({.command = command});
    if (program.wait() != 0) throw std::runtime_error("setxkbmap failed");
}

void XHands::chooseLayout(int group) {
    xcb_xkb_latch_lock_state(x11->get(), XCB_XKB_ID_USE_CORE_KBD, 0, 0, true,
                             static_cast<std::uint8_t>(group), 0, false, 0);
    sync();
}

void XHands::setPointerMap(const std::vector<std::uint8_t>& map) {
    const auto present = x11->reply<xcb_get_pointer_mapping_reply>(
        xcb_get_pointer_mapping(x11->get()), "GetPointerMapping");
    const auto* old = xcb_get_pointer_mapping_map(present.get());
    std::vector<std::uint8_t> whole(old, old + present->map_len);
    std::copy(map.begin(), map.end(), whole.begin());
    x11->reply<xcb_set_pointer_mapping_reply>(
        xcb_set_pointer_mapping(x11->get(), present->map_len, whole.data()), "SetPointerMapping");
}

std::string XHands::down() const {
    const auto keys =
        x11->reply<xcb_query_keymap_reply>(xcb_query_keymap(x11->get()), "QueryKeymap");
    const auto pointer = x11->reply<xcb_query_pointer_reply>(
        xcb_query_pointer(x11->get(), x11->root()), "QueryPointer");
    std::string found;
    for (int code = 0; code < 256; ++code) {
        if (keys->keys[code / 8] >> (code % 8) & 1)
            found += (found.empty() ? "" : " ") + std::to_string(code);
    }
    for (int button = 1; button <= 5; ++button) {
        if (pointer->mask >> (7 + button) & 1)
            found += (found.empty() ? "b" : " b") + std::to_string(button);
    }
    return found;
}

bool XHands::isCapsLocked() const {
    const auto state = x11->reply<xcb_xkb_get_state_reply>(
        xcb_xkb_get_state(x11->get(), XCB_XKB_ID_USE_CORE_KBD), "XkbGetState");
    return state->lockedMods & XCB_MOD_MASK_LOCK;
}

std::string XHands::keyboardMap(Keyboards which) const {
    const TemporaryFolder folder;
    std::vector<std::string> command{"xkbcomp", "-w", "0", "-xkb", display, folder / "map"};
    if (which == Keyboards::own)
        command.insert(command.begin() + 1, {"-i", std::to_string(keyboard)});
    BackgroundProcess program({.command = command});
    if (program.wait() != 0) throw std::runtime_error("xkbcomp failed");
    return fileText(folder / "map");
}

}  // namespace orvel
