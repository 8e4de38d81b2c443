#include "OrvelAgent/Platform/Linux/X11Monitors.h"

#include <xcb/randr.h>

#include <algorithm>

namespace orvel {

namespace {

std::uint32_t fnv1a(std::string_view text) {
    std::uint32_t hash = 2'166'136'261;
    for (const char character : text) {
        hash ^= static_cast<std::uint8_t>(character);
        hash *= 16'777'619;
    }
    return hash;
}

Rect intersection(const Rect& a, const Rect& b) {
    const int left = std::max(a.x, b.x), top = std::max(a.y, b.y);
    return {left, top, std::min(a.x + a.width, b.x + b.width) - left,
            std::min(a.y + a.height, b.y + b.height) - top};
}

bool hasMonitors(const X11Connection& x11) {
    if (!x11.extension(xcb_randr_id)) return false;
    const auto version = x11.reply<xcb_randr_query_version_reply>(
        xcb_randr_query_version(x11.get(), 1, 5), "RRQueryVersion");
    return version->major_version > 1 ||
           (version->major_version == 1 && version->minor_version >= 5);
}

std::string atomName(const X11Connection& x11, xcb_atom_t atom) {
    if (atom == XCB_ATOM_NONE) return {};
    const auto answer =
        x11.reply<xcb_get_atom_name_reply>(xcb_get_atom_name(x11.get(), atom), "GetAtomName");
    return {xcb_get_atom_name_name(answer.get()),
            static_cast<std::size_t>(xcb_get_atom_name_name_length(answer.get()))};
}

std::string outputModel(const X11Connection& x11, xcb_atom_t edid,
                        const xcb_randr_monitor_info_t& info) {
    if (edid == XCB_ATOM_NONE || xcb_randr_monitor_info_outputs_length(&info) == 0) return {};
    constexpr std::uint32_t words = 128;  // four blocks; the name stands in the first
    // May fail: outputs come and go.
    const X11Message<xcb_randr_get_output_property_reply_t> property(
        xcb_randr_get_output_property_reply(
            x11.get(),
            xcb_randr_get_output_property(x11.get(), xcb_randr_monitor_info_outputs(&info)[0], edid,
                                          XCB_ATOM_ANY, 0, words, false, false),
            nullptr));
    if (!property || property->format != 8) return {};
    return modelName(
        {xcb_randr_get_output_property_data(property.get()),
         static_cast<std::size_t>(xcb_randr_get_output_property_data_length(property.get()))});
}

}  // namespace

X11MonitorEvents::X11MonitorEvents(const X11Connection& x11) {
    const auto* randr = x11.extension(xcb_randr_id);
    if (!randr) return;
    first = randr->first_event;
    xcb_randr_select_input(x11.get(), x11.root(),
                           XCB_RANDR_NOTIFY_MASK_SCREEN_CHANGE | XCB_RANDR_NOTIFY_MASK_CRTC_CHANGE |
                               XCB_RANDR_NOTIFY_MASK_OUTPUT_CHANGE);
}

bool X11MonitorEvents::contain(std::uint8_t eventType) const {
    return first != 0 && (eventType == first + XCB_RANDR_SCREEN_CHANGE_NOTIFY ||
                          eventType == first + XCB_RANDR_NOTIFY);
}

std::string modelName(ByteView edid) {
    constexpr std::size_t blockSize = 128, firstDescriptor = 54, descriptorSize = 18;
    constexpr std::size_t textAt = 5;
    constexpr std::uint8_t monitorName = 0xFC;
    if (edid.size() < blockSize) return {};
    for (std::size_t at = firstDescriptor; at + descriptorSize < blockSize; at += descriptorSize) {
        if (edid[at] || edid[at + 1] || edid[at + 2] || edid[at + 3] != monitorName) continue;
        std::string name;
        for (const std::uint8_t byte : edid.subspan(at + textAt, descriptorSize - textAt)) {
            if (byte == '\n' || byte == 0) break;
            name += byte >= ' ' && byte < 0x7F ? static_cast<char>(byte) : '?';
        }
        name.erase(name.find_last_not_of(' ') + 1);
        return name;
    }
    return {};
}

void identify(std::vector<X11Monitor>& monitors) {
    std::vector<std::uint32_t> used;
    std::vector<std::string> names;
    for (auto& monitor : monitors) {
        names.push_back(monitor.name);
        monitor.id = fnv1a(monitor.connector);
        for (std::size_t next = 2;
             monitor.id == 0 || std::count(used.begin(), used.end(), monitor.id); ++next) {
            monitor.id = fnv1a(monitor.connector + "#" + std::to_string(next));
        }
        used.push_back(monitor.id);
    }
    for (auto& monitor : monitors) {
        if (std::count(names.begin(), names.end(), monitor.name) > 1 &&
            monitor.name != monitor.connector) {
            monitor.name += " (" + monitor.connector + ")";
        }
    }
}

std::vector<X11Monitor> readMonitors(const X11Connection& x11) {
    const Rect root = x11.rootArea();
    std::vector<X11Monitor> monitors;
    if (!hasMonitors(x11)) {
        monitors.push_back({0, {}, {}, root, true});
        identify(monitors);
        return monitors;
    }

    const auto edid =
        x11.reply<xcb_intern_atom_reply>(xcb_intern_atom(x11.get(), true, 4, "EDID"), "InternAtom");
    const auto answer = x11.reply<xcb_randr_get_monitors_reply>(
        xcb_randr_get_monitors(x11.get(), x11.root(), true), "RRGetMonitors");
    for (auto info = xcb_randr_get_monitors_monitors_iterator(answer.get()); info.rem;
         xcb_randr_monitor_info_next(&info)) {
        // A monitor may reach beyond the root window, where there is nothing to see.
        const Rect area =
            intersection({info.data->x, info.data->y, info.data->width, info.data->height}, root);
        if (area.isEmpty()) continue;
        const std::string connector = atomName(x11, info.data->name);
        const std::string model = outputModel(x11, edid->atom, *info.data);
        monitors.push_back(
            {0, connector, model.empty() ? connector : model, area, info.data->primary != 0});
    }
    // The main one, or exactly one of several.
    bool hasMain = false;
    for (auto& monitor : monitors) {
        monitor.isMain = monitor.isMain && !hasMain;
        hasMain = hasMain || monitor.isMain;
    }
    if (!hasMain && !monitors.empty()) monitors.front().isMain = true;
    identify(monitors);
    return monitors;
}

}  // namespace orvel
