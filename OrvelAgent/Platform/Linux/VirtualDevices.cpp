#include "OrvelAgent/Platform/Linux/VirtualDevices.h"

#include <xcb/xinput.h>

#include <string_view>

#include "OrvelAgent/Platform/Linux/XkbHeader.h"

namespace orvel {

template <class Visit>
void VirtualDevices::eachDevice(Visit visit) const {
    if (!x11.extension(xcb_input_id)) return;
    const auto devices = x11.reply<xcb_input_xi_query_device_reply>(
        xcb_input_xi_query_device(x11.get(), XCB_INPUT_DEVICE_ALL), "XIQueryDevice");
    for (auto each = xcb_input_xi_query_device_infos_iterator(devices.get()); each.rem;
         xcb_input_xi_device_info_next(&each))
        visit(*each.data);
}

VirtualDevices::VirtualDevices(const X11Connection& connection)
    : x11(connection), keyboardNumber(XCB_XKB_ID_USE_CORE_KBD) {
    if (x11.extension(xcb_input_id)) {
        x11.reply<xcb_input_xi_query_version_reply>(xcb_input_xi_query_version(x11.get(), 2, 2),
                                                    "XIQueryVersion");
    }
    // The first pair of masters is the one that XTEST posts to.
    std::uint16_t masterPointer = 0;
    eachDevice([&](const xcb_input_xi_device_info_t& device) {
        const std::string_view name(
            xcb_input_xi_device_info_name(&device),
            static_cast<std::size_t>(xcb_input_xi_device_info_name_length(&device)));
        const bool isVirtual = name.find(" XTEST ") != name.npos;
        if (device.type == XCB_INPUT_DEVICE_TYPE_MASTER_KEYBOARD && master == 0) {
            master = device.deviceid;
            masterPointer = device.attachment;
        } else if (device.type == XCB_INPUT_DEVICE_TYPE_SLAVE_KEYBOARD && isVirtual &&
                   device.attachment == master) {
            keyboardNumber = device.deviceid;
        } else if (device.type == XCB_INPUT_DEVICE_TYPE_SLAVE_POINTER && isVirtual &&
                   device.attachment == masterPointer) {
            pointerNumber = device.deviceid;
        }
    });
}

std::vector<std::uint16_t> VirtualDevices::otherKeyboards() const {
    std::vector<std::uint16_t> others;
    eachDevice([&](const xcb_input_xi_device_info_t& device) {
        if (device.type == XCB_INPUT_DEVICE_TYPE_SLAVE_KEYBOARD && device.attachment == master &&
            device.deviceid != keyboardNumber)
            others.push_back(device.deviceid);
    });
    return others;
}

bool VirtualDevices::isKeyboardInUse() const {
    bool isInUse = false;
    eachDevice([&](const xcb_input_xi_device_info_t& device) {
        if (device.deviceid != master) return;
        for (auto each = xcb_input_xi_device_info_classes_iterator(&device); each.rem;
             xcb_input_device_class_next(&each)) {
            if (each.data->type == XCB_INPUT_DEVICE_CLASS_TYPE_KEY)
                isInUse = each.data->sourceid == keyboardNumber;
        }
    });
    return isInUse;
}

std::vector<std::uint8_t> VirtualDevices::down(std::uint16_t device, int inputClass) const {
    std::vector<std::uint8_t> found;
    const auto answer = x11.reply<xcb_input_query_device_state_reply>(
        xcb_input_query_device_state(x11.get(), static_cast<std::uint8_t>(device)),
        "QueryDeviceState");
    for (auto each = xcb_input_query_device_state_classes_iterator(answer.get()); each.rem;
         xcb_input_input_state_next(&each)) {
        if (each.data->class_id != inputClass) continue;
        // Keys and buttons are laid out alike.
        const auto* bits = reinterpret_cast<const xcb_input_key_state_t*>(each.data)->keys;
        for (int number = 0; number < 256; ++number) {
            if (bits[number / 8] >> (number % 8) & 1)
                found.push_back(static_cast<std::uint8_t>(number));
        }
    }
    return found;
}

std::vector<KeyCodeX> VirtualDevices::keysDown() const {
    if (keyboardNumber == XCB_XKB_ID_USE_CORE_KBD) return {};
    return down(keyboardNumber, XCB_INPUT_INPUT_CLASS_KEY);
}

std::vector<std::uint8_t> VirtualDevices::buttonsDown() const {
    if (pointerNumber == 0) return {};
    return down(pointerNumber, XCB_INPUT_INPUT_CLASS_BUTTON);
}

bool VirtualDevices::repeats(std::uint16_t keyboard) const {
    const auto controls = x11.reply<xcb_xkb_get_controls_reply>(
        xcb_xkb_get_controls(x11.get(), keyboard), "XkbGetControls");
    return controls->enabledControls & XCB_XKB_BOOL_CTRL_REPEAT_KEYS;
}

void VirtualDevices::setRepeats(std::uint16_t keyboard, bool wanted) const {
    constexpr std::uint32_t repeat = XCB_XKB_BOOL_CTRL_REPEAT_KEYS;
    const std::uint8_t perKey[32] = {};  // not changed, like everything else here that is 0
    xcb_xkb_set_controls(x11.get(), keyboard, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, repeat,
                         wanted ? repeat : 0, XCB_XKB_CONTROL_CONTROLS_ENABLED, 0, 0, 0, 0, 0, 0, 0,
                         0, 0, 0, 0, 0, 0, 0, perKey);
}

}  // namespace orvel
