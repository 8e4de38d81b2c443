#include "OrvelAgent/Control/ControlRequest.h"

#include "OrvelKit/Base/Json.h"

namespace orvel {

ControlRequest::Any ControlRequest::parse(const std::string& line) {
    try {
        const JsonDocument document(line);
        const JsonValue root = document.root();
        if (root.isObject() && root.size() == 1 && root.firstMember().second.isObject()) {
            const auto name = root.firstMember().first;
            if (name == "snapshot") return Snapshot{};
            if (name == "follow") return Follow{};
            if (name == "show") return Show{};
            if (name == "environment") return Environment{};
        }
    } catch (const JsonError&) {
    }
    return HeadlessAction::parse(line);
}

}  // namespace orvel
