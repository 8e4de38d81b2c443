#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include "OrvelKit/Base/Bytes.h"
#include "OrvelKit/Wire/Framing.h"

namespace orvel {

// One step of a file transfer. `id` is the one that the phone chose in fetchFile.
struct FileFrame {
    struct Start {
        std::string name;
        std::int64_t size = 0;  // bytes
        bool operator==(const Start&) const = default;
    };
    struct Data {
        Bytes bytes;
        bool operator==(const Data&) const = default;
    };
    struct End {
        std::optional<std::string> error;  // absent: the transfer finished well
        bool operator==(const End&) const = default;
    };

    std::uint32_t id = 0;
    std::variant<Start, Data, End> step;
    bool operator==(const FileFrame&) const = default;

    FrameBuffer encode() const;
    // A `data` step whose bytes the caller writes at payload() + dataHeaderLength.
    static constexpr std::size_t dataHeaderLength = 5;
    static FrameBuffer dataBuffer(std::uint32_t id, std::size_t length);
    // Throws FramingError::malformed, or ControlError for a bad JSON body.
    static FileFrame decode(ByteView payload);
};

}  // namespace orvel
