#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "OrvelKit/Base/Bytes.h"
#include "OrvelKit/Base/Clock.h"

namespace orvel {

// Constants that agent and phone share.
struct Orvel {
    static constexpr const char* serviceType = "_orvel._tcp";
    static constexpr std::uint16_t port = 47800;
    static constexpr std::int64_t protocolVersion = 2;         // what this agent speaks
    static constexpr std::int64_t minimumProtocolVersion = 2;  // what a phone must speak
    Orvel() = delete;
};

enum class MouseButton { left, right };
enum class ScrollPhase { began, changed, ended, momentum, momentumEnded };
enum class Rejection { pinRequired, wrongPin, versionMismatch, phoneOutdated, permissionsMissing };

// The strings that stand for the cases on the wire.
const char* rawValue(MouseButton button);
const char* rawValue(ScrollPhase phase);
const char* rawValue(Rejection reason);

// An option set; bits 32, 64 and 128 have no meaning and are carried along.
struct Modifiers {
    static constexpr std::uint8_t shift = 1, control = 2, option = 4, command = 8, function = 16;
    std::uint8_t rawValue = 0;
    bool contains(std::uint8_t member) const { return (rawValue & member) != 0; }
    bool operator==(const Modifiers&) const = default;
};

struct Hello {
    std::int64_t version = Orvel::protocolVersion;
    std::string deviceID;
    std::string deviceName;
    std::optional<std::string> pin;
    std::int64_t maxPixels = 1920;  // longer edge of the picture wanted, pixels
    std::optional<Bytes> publicKey;
    bool operator==(const Hello&) const = default;
};

struct DisplayInfo {
    std::uint32_t id = 0;
    std::string name;
    double width = 0, height = 0;  // points
    bool operator==(const DisplayInfo&) const = default;
};

struct Welcome {
    std::string macName;
    double screenWidth = 0, screenHeight = 0;      // points
    std::int64_t videoWidth = 0, videoHeight = 0;  // pixels
    std::optional<Bytes> agentKey;                 // 32 bytes
    std::optional<std::vector<DisplayInfo>> displays;
    std::optional<std::uint32_t> displayID;
    std::optional<std::int64_t> protocolVersion;
    std::optional<std::string> agentVersion;
    bool operator==(const Welcome&) const = default;
};

struct FileEntry {
    std::string name;
    bool isDirectory = false;
    std::int64_t size = 0;  // bytes
    std::optional<WallTime> modified;
    bool operator==(const FileEntry&) const = default;
};

struct DirectoryListing {
    std::string path;
    std::optional<std::string> parent;  // absent at the top
    std::vector<FileEntry> entries;
    std::optional<std::string> error;  // why the folder could not be read
    bool operator==(const DirectoryListing&) const = default;
};

// What is wrong with the JSON of a Control (or of a FileFrame's body). `what()` names the member.
struct ControlError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// All that agent and phone say to each other beside media and file bytes. One alternative a case;
// on the wire an object whose only member is named after the case. Who sends which:
// Docs/Protocol.md.
struct Control {
    // From the phone, beside Hello. Clipboard, below, goes both ways.
    struct Move {
        double dx = 0, dy = 0;
        bool operator==(const Move&) const = default;
    };
    struct MoveTo {
        double x = 0, y = 0;
        bool operator==(const MoveTo&) const = default;
    };
    struct Button {
        MouseButton button{};
        bool down = false;
        std::int64_t clicks = 0;
        bool operator==(const Button&) const = default;
    };
    struct Scroll {
        double dx = 0, dy = 0;
        ScrollPhase phase{};
        bool operator==(const Scroll&) const = default;
    };
    struct Key {
        std::uint16_t code = 0;
        bool down = false;
        Modifiers modifiers;
        bool operator==(const Key&) const = default;
    };
    struct Text {
        std::string text;
        bool operator==(const Text&) const = default;
    };
    struct RequestKeyframe {
        bool operator==(const RequestKeyframe&) const = default;
    };
    struct Ping {
        std::uint64_t value = 0;
        bool operator==(const Ping&) const = default;
    };
    struct SelectDisplay {
        std::uint32_t id = 0;
        bool operator==(const SelectDisplay&) const = default;
    };
    struct Audio {
        bool on = false;
        bool operator==(const Audio&) const = default;
    };
    struct ListDirectory {
        std::optional<std::string> path;
        bool operator==(const ListDirectory&) const = default;
    };
    struct FetchFile {
        std::uint32_t id = 0;
        std::string path;
        bool operator==(const FetchFile&) const = default;
    };
    struct CancelFetch {
        std::uint32_t id = 0;
        bool operator==(const CancelFetch&) const = default;
    };
    // From the agent, beside Welcome and DirectoryListing.
    struct Rejected {
        Rejection reason{};
        bool operator==(const Rejected&) const = default;
    };
    struct Pong {
        std::uint64_t value = 0;
        bool operator==(const Pong&) const = default;
    };
    struct FrontApp {
        std::string bundleID, name;
        bool operator==(const FrontApp&) const = default;
    };
    struct TextFocus {
        bool focused = false;
        bool operator==(const TextFocus&) const = default;
    };
    struct Clipboard {
        std::string text;
        bool operator==(const Clipboard&) const = default;
    };

    using Case = std::variant<Hello, Move, MoveTo, Button, Scroll, Key, Text, RequestKeyframe, Ping,
                              SelectDisplay, Audio, ListDirectory, FetchFile, CancelFetch, Welcome,
                              Rejected, Pong, DirectoryListing, FrontApp, TextFocus, Clipboard>;
    Case value;

    template <class T>
    const T* as() const {
        return std::get_if<T>(&value);
    }
    bool operator==(const Control&) const = default;

    // JSON as described in Docs/Protocol.md. Encoding cannot fail: a number that is not finite
    // becomes 0, bytes that are not UTF-8 become U+FFFD. Decoding throws ControlError.
    std::string toJson() const;
    static Control fromJson(std::string_view json);
};

}  // namespace orvel
