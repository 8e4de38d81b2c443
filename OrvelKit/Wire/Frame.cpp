#include "OrvelKit/Wire/Frame.h"

namespace orvel {

const char* FramingError::what() const noexcept {
    switch (code) {
        case Code::unknownKind:
            return "unexpected frame kind";
        case Code::tooLarge:
            return "frame too large";
        case Code::malformed:
            return "malformed payload";
    }
    return "framing error";
}

}  // namespace orvel
