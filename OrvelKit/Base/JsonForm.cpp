#include "OrvelKit/Base/JsonForm.h"

#include <string>
#include <utility>

namespace orvel {

void JsonPlace::fail(const char* problem) const {
    std::string path;
    for (const JsonPlace* place = this; place->outer; place = place->outer) {
        std::string step = place->name ? place->name : std::to_string(place->index);
        if (!path.empty()) step.append(".").append(path);
        path = std::move(step);
    }
    if (path.empty()) path = "the document";
    throw JsonError(path.append(" ").append(problem));
}

}  // namespace orvel
