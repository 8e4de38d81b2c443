#include "OrvelKit/Base/JsonForm.h"

namespace orvel {

void JsonPlace::fail(const char* problem) const {
    std::string path;
    for (const JsonPlace* place = this; place; place = place->outer) {
        if (!place->outer) break;
        const std::string step = place->name ? place->name : std::to_string(place->index);
        path = path.empty() ? step : step + "." + path;
    }
    throw JsonError((path.empty() ? "the document" : path) + " " + problem);
}

}  // namespace orvel
