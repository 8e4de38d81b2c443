#include "OrvelAgent/Platform/Linux/WindowIdentity.h"

#include <cstring>

#include "OrvelAgent/Platform/Linux/SelectionText.h"
#include "OrvelAgent/Platform/Linux/X11Client.h"

namespace orvel {

namespace {

constexpr std::uint32_t maxWords = 256;  // of a property; names are not longer
constexpr int maxSteps = 4;              // from a dialog to its dialog's window

// In the order in which readAlone() goes through them.
const std::vector<std::string>& propertyNames() {
    static const std::vector<std::string> names{
        "WM_CLASS",           "_GTK_APPLICATION_ID", "_KDE_NET_WM_DESKTOP_FILE",
        "_BAMF_DESKTOP_FILE", "_NET_WM_NAME",        "WM_NAME",
        "WM_TRANSIENT_FOR"};
    return names;
}

std::string_view bytesOf(const xcb_get_property_reply_t& answer) {
    if (answer.format != 8) return {};
    return {static_cast<const char*>(xcb_get_property_value(&answer)), answer.value_len};
}

std::string textOf(std::string_view bytes) {
    return utf8From(SelectionEncoding::unstated, std::string(bytes));
}

}  // namespace

WindowIdentityReader::WindowIdentityReader(const X11Connection& connection)
    : x11(connection), properties(internAtoms(connection, propertyNames())) {}

std::optional<WindowIdentity> WindowIdentityReader::read(xcb_window_t window) const {
    xcb_window_t openedFor = XCB_NONE;
    auto identity = readAlone(window, openedFor);
    for (int step = 0; identity && identity->className.empty() && identity->instance.empty() &&
                       openedFor != XCB_NONE && step < maxSteps;
         ++step) {
        auto other = readAlone(openedFor, openedFor);
        if (!other) break;
        identity = std::move(other);
    }
    return identity;
}

std::optional<WindowIdentity> WindowIdentityReader::readAlone(xcb_window_t window,
                                                              xcb_window_t& openedFor) const {
    openedFor = XCB_NONE;
    std::vector<xcb_get_property_cookie_t> asked;
    for (const auto property : properties) {
        asked.push_back(xcb_get_property(x11.get(), 0, window, property, XCB_GET_PROPERTY_TYPE_ANY,
                                         0, maxWords));
    }
    std::vector<X11Message<xcb_get_property_reply_t>> answers;
    for (const auto& cookie : asked) {
        try {
            answers.push_back(x11.reply<xcb_get_property_reply>(cookie, "GetProperty"));
        } catch (const X11Refusal&) {
        }
    }
    if (answers.size() != asked.size()) return std::nullopt;

    WindowIdentity identity;
    // Two texts, each with a zero byte behind it.
    const auto both = bytesOf(*answers[0]);
    const auto end = std::min(both.find('\0'), both.size());
    identity.instance = textOf(both.substr(0, end));
    if (end < both.size()) {
        const auto rest = both.substr(end + 1);
        identity.className = textOf(rest.substr(0, rest.find('\0')));
    }
    identity.applicationID = textOf(bytesOf(*answers[1]));
    identity.desktopFile = textOf(bytesOf(*answers[2]));
    if (identity.desktopFile.empty()) identity.desktopFile = textOf(bytesOf(*answers[3]));
    identity.title = textOf(bytesOf(*answers[4]));
    if (identity.title.empty()) identity.title = textOf(bytesOf(*answers[5]));
    if (answers[6]->format == 32 && answers[6]->value_len == 1) {
        std::memcpy(&openedFor, xcb_get_property_value(answers[6].get()), sizeof(openedFor));
    }
    return identity;
}

}  // namespace orvel
