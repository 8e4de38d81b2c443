#include "Fuzz/Fuzz.h"
#include "OrvelKit/Base/Bytes.h"
#include "OrvelKit/Relay/SignalMessage.h"

// Whatever decodes is encoded to a document that decodes to the same.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace orvel;
    std::optional<SignalMessage> first;
    try {
        first = SignalMessage::fromJson(textOf({data, size}));
    } catch (const JsonError&) {
        return 0;
    }
    const std::string json = first->toJson();
    const auto second = SignalMessage::fromJson(json);
    claim(second == *first, "a message survives its JSON");
    claim(second.toJson() == json, "the JSON is stable");
    return 0;
}
