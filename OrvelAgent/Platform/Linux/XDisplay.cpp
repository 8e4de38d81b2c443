#include "OrvelAgent/Platform/Linux/XDisplay.h"

#include <xcb/dpms.h>
#include <xcb/screensaver.h>
#include <xcb/xcb.h>

#include <cstdlib>

#include "OrvelAgent/Platform/Linux/XConnect.h"

namespace orvel {

namespace {

struct FreeAnswer {
    void operator()(void* answer) const { std::free(answer); }
};
template <class T>
using Answer = std::unique_ptr<T, FreeAnswer>;

bool hasExtension(xcb_connection_t* connection, xcb_extension_t* extension) {
    const auto* data = xcb_get_extension_data(connection, extension);
    return data && data->present;
}

}  // namespace

std::unique_ptr<XDisplay> XDisplay::open() {
    std::unique_ptr<XDisplay> display(new XDisplay(connectToXServer(nullptr, nullptr)));
    if (xcb_connection_has_error(display->connection)) return nullptr;
    return display;
}

XDisplay::~XDisplay() {
    xcb_disconnect(connection);
}

bool XDisplay::isConnected() {
    // Reading notices the end of the connection; nothing was asked for that could come in.
    const Answer<xcb_generic_event_t> ignored(xcb_poll_for_event(connection));
    return !xcb_connection_has_error(connection);
}

void XDisplay::wake() {
    xcb_force_screen_saver(connection, XCB_SCREEN_SAVER_RESET);
    if (hasExtension(connection, &xcb_dpms_id)) {
        const Answer<xcb_dpms_info_reply_t> info(
            xcb_dpms_info_reply(connection, xcb_dpms_info(connection), nullptr));
        if (info && info->state && info->power_level != XCB_DPMS_DPMS_MODE_ON) {
            xcb_dpms_force_level(connection, XCB_DPMS_DPMS_MODE_ON);
        }
    }
    // Answered after the requests before it: they must not be lost with the connection.
    const Answer<xcb_get_input_focus_reply_t> done(
        xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr));
}

bool XDisplay::suspendScreenSaver() {
    if (!hasExtension(connection, &xcb_screensaver_id)) return false;
    const Answer<xcb_screensaver_query_version_reply_t> version(xcb_screensaver_query_version_reply(
        connection, xcb_screensaver_query_version(connection, 1, 1), nullptr));
    if (!version || version->server_major_version != 1 || version->server_minor_version < 1) {
        return false;
    }
    const Answer<xcb_generic_error_t> refused(
        xcb_request_check(connection, xcb_screensaver_suspend_checked(connection, 1)));
    return !refused && isConnected();
}

}  // namespace orvel
