#include "OrvelAgent/Platform/Linux/X11Permissions.h"

#include <xcb/damage.h>
#include <xcb/xfixes.h>
#include <xcb/xtest.h>

#include <utility>

#include "OrvelAgent/Platform/Linux/X11Connection.h"

namespace orvel {

namespace {

bool grantsPixels(const X11Connection& x11) {
    if (!x11.extension(xcb_damage_id) || !x11.extension(xcb_xfixes_id)) return false;
    try {
        x11.requireBgrxPixels();
        x11.reply<xcb_get_image_reply>(
            xcb_get_image(x11.get(), XCB_IMAGE_FORMAT_Z_PIXMAP, x11.root(), 0, 0, 1, 1, ~0u),
            "GetImage");
        return true;
    } catch (const X11Failure&) {
        return false;
    }
}

}  // namespace

std::unique_ptr<Permissions> Permissions::create() {
    return std::make_unique<X11Permissions>();
}

X11Permissions::X11Permissions(std::string displayName) : display(std::move(displayName)) {}

X11Permissions::~X11Permissions() = default;

bool X11Permissions::screenRecording() {
    return ask().screenRecording;
}

bool X11Permissions::accessibility() {
    return ask().accessibility;
}

X11Permissions::Granted X11Permissions::ask() {
    const std::lock_guard hold(mutex);
    try {
        if (x11) {
            // Reads what has come, without waiting: that shows whether the server is still there.
            while (x11->pollEvent()) {
            }
            return granted;
        }
    } catch (const X11Failure&) {
        x11.reset();
    }
    granted = {};
    try {
        x11 = std::make_unique<X11Connection>(display);
        granted.screenRecording = grantsPixels(*x11);
        granted.accessibility = x11->extension(xcb_test_id) != nullptr;
        if (!x11->isAlive()) {
            x11.reset();
            granted = {};
        }
    } catch (const X11Failure&) {
    }
    return granted;
}

}  // namespace orvel
