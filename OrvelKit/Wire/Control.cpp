#include "OrvelKit/Wire/Control.h"

#include "OrvelKit/Base/JsonForm.h"

namespace orvel {

template <>
struct JsonForm<MouseButton> {
    static constexpr JsonName<MouseButton> names[] = {{MouseButton::left, "left"},
                                                      {MouseButton::right, "right"}};
};

template <>
struct JsonForm<ScrollPhase> {
    static constexpr JsonName<ScrollPhase> names[] = {
        {ScrollPhase::began, "began"},
        {ScrollPhase::changed, "changed"},
        {ScrollPhase::ended, "ended"},
        {ScrollPhase::momentum, "momentum"},
        {ScrollPhase::momentumEnded, "momentumEnded"}};
};

template <>
struct JsonForm<Rejection> {
    static constexpr JsonName<Rejection> names[] = {
        {Rejection::pinRequired, "pinRequired"},
        {Rejection::wrongPin, "wrongPin"},
        {Rejection::versionMismatch, "versionMismatch"},
        {Rejection::phoneOutdated, "phoneOutdated"},
        {Rejection::permissionsMissing, "permissionsMissing"}};
};

template <>
struct JsonForm<Modifiers> {
    static constexpr auto raw = &Modifiers::rawValue;
};

template <>
struct JsonForm<Hello> {
    static void members(auto& json, auto& hello) {
        json("version", hello.version);
        json("deviceID", hello.deviceID);
        json("deviceName", hello.deviceName);
        json("pin", hello.pin);
        json("maxPixels", hello.maxPixels);
        json("publicKey", hello.publicKey);
    }
};

template <>
struct JsonForm<DisplayInfo> {
    static void members(auto& json, auto& display) {
        json("id", display.id);
        json("name", display.name);
        json("width", display.width);
        json("height", display.height);
    }
};

template <>
struct JsonForm<Welcome> {
    static void members(auto& json, auto& welcome) {
        json("macName", welcome.macName);
        json("screenWidth", welcome.screenWidth);
        json("screenHeight", welcome.screenHeight);
        json("videoWidth", welcome.videoWidth);
        json("videoHeight", welcome.videoHeight);
        json("agentKey", welcome.agentKey);
        json("displays", welcome.displays);
        json("displayID", welcome.displayID);
        json("protocolVersion", welcome.protocolVersion);
        json("agentVersion", welcome.agentVersion);
    }
};

template <>
struct JsonForm<FileEntry> {
    static void members(auto& json, auto& entry) {
        json("name", entry.name);
        json("isDirectory", entry.isDirectory);
        json("size", entry.size);
        json("modified", entry.modified);
    }
};

template <>
struct JsonForm<DirectoryListing> {
    static void members(auto& json, auto& listing) {
        json("path", listing.path);
        json("parent", listing.parent);
        json("entries", listing.entries);
        json("error", listing.error);
    }
};

template <>
struct JsonCase<Hello> {
    static constexpr const char* name = "hello";
    static void payload(auto& json, auto& hello) { json("_0", hello); }
};

template <>
struct JsonCase<Control::Move> {
    static constexpr const char* name = "move";
    static void payload(auto& json, auto& move) {
        json("dx", move.dx);
        json("dy", move.dy);
    }
};

template <>
struct JsonCase<Control::MoveTo> {
    static constexpr const char* name = "moveTo";
    static void payload(auto& json, auto& target) {
        json("x", target.x);
        json("y", target.y);
    }
};

template <>
struct JsonCase<Control::Button> {
    static constexpr const char* name = "button";
    static void payload(auto& json, auto& button) {
        json("_0", button.button);
        json("down", button.down);
        json("clicks", button.clicks);
    }
};

template <>
struct JsonCase<Control::Scroll> {
    static constexpr const char* name = "scroll";
    static void payload(auto& json, auto& scroll) {
        json("dx", scroll.dx);
        json("dy", scroll.dy);
        json("phase", scroll.phase);
    }
};

template <>
struct JsonCase<Control::Key> {
    static constexpr const char* name = "key";
    static void payload(auto& json, auto& key) {
        json("code", key.code);
        json("down", key.down);
        json("modifiers", key.modifiers);
    }
};

template <>
struct JsonCase<Control::Text> {
    static constexpr const char* name = "text";
    static void payload(auto& json, auto& typed) { json("_0", typed.text); }
};

template <>
struct JsonCase<Control::RequestKeyframe> {
    static constexpr const char* name = "requestKeyframe";
    static void payload(auto&, auto&) {}
};

template <>
struct JsonCase<Control::Ping> {
    static constexpr const char* name = "ping";
    static void payload(auto& json, auto& ping) { json("_0", ping.value); }
};

template <>
struct JsonCase<Control::SelectDisplay> {
    static constexpr const char* name = "selectDisplay";
    static void payload(auto& json, auto& display) { json("_0", display.id); }
};

template <>
struct JsonCase<Control::Audio> {
    static constexpr const char* name = "audio";
    static void payload(auto& json, auto& audio) { json("_0", audio.on); }
};

template <>
struct JsonCase<Control::ListDirectory> {
    static constexpr const char* name = "listDirectory";
    static void payload(auto& json, auto& folder) { json("_0", folder.path); }
};

template <>
struct JsonCase<Control::FetchFile> {
    static constexpr const char* name = "fetchFile";
    static void payload(auto& json, auto& fetch) {
        json("id", fetch.id);
        json("path", fetch.path);
    }
};

template <>
struct JsonCase<Control::CancelFetch> {
    static constexpr const char* name = "cancelFetch";
    static void payload(auto& json, auto& fetch) { json("_0", fetch.id); }
};

template <>
struct JsonCase<Welcome> {
    static constexpr const char* name = "welcome";
    static void payload(auto& json, auto& welcome) { json("_0", welcome); }
};

template <>
struct JsonCase<Control::Rejected> {
    static constexpr const char* name = "rejected";
    static void payload(auto& json, auto& rejected) { json("_0", rejected.reason); }
};

template <>
struct JsonCase<Control::Pong> {
    static constexpr const char* name = "pong";
    static void payload(auto& json, auto& pong) { json("_0", pong.value); }
};

template <>
struct JsonCase<DirectoryListing> {
    static constexpr const char* name = "directory";
    static void payload(auto& json, auto& listing) { json("_0", listing); }
};

template <>
struct JsonCase<Control::FrontApp> {
    static constexpr const char* name = "frontApp";
    static void payload(auto& json, auto& app) {
        json("bundleID", app.bundleID);
        json("name", app.name);
    }
};

template <>
struct JsonCase<Control::TextFocus> {
    static constexpr const char* name = "textFocus";
    static void payload(auto& json, auto& focus) { json("_0", focus.focused); }
};

template <>
struct JsonCase<Control::Clipboard> {
    static constexpr const char* name = "clipboard";
    static void payload(auto& json, auto& clipboard) { json("_0", clipboard.text); }
};

const char* rawValue(MouseButton button) {
    return jsonName(button);
}

const char* rawValue(ScrollPhase phase) {
    return jsonName(phase);
}

const char* rawValue(Rejection reason) {
    return jsonName(reason);
}

std::string Control::toJson() const {
    return encodeJson(value);
}

Control Control::fromJson(std::string_view json) {
    try {
        return {decodeJson<Case>(json)};
    } catch (const JsonError& error) {
        throw ControlError(error.what());
    }
}

}  // namespace orvel
