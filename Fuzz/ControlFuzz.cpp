#include "Fuzz/Fuzz.h"
#include "OrvelKit/Wire/Control.h"
#include "OrvelKit/Wire/Framing.h"

// Whatever decodes is encoded to a document that decodes to the same.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace orvel;
    std::optional<Control> first;
    try {
        first = Framing::decodeControl({data, size});
    } catch (const ControlError&) {
        return 0;
    }
    const std::string json = first->toJson();
    const Control second = Control::fromJson(json);
    claim(second == *first, "a control survives its JSON");
    claim(second.toJson() == json, "the JSON is stable");
    return 0;
}
