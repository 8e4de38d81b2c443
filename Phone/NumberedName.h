#pragma once

#include <cstddef>
#include <string>

namespace orvel::phone {

// The name of the number-th file that would have the path `path`: the first is `path` itself, then
// -2, -3 ... stand before its ending.
inline std::string numberedName(const std::string& path, std::size_t number) {
    if (number == 1) return path;
    const std::size_t slash = path.find_last_of('/');
    const std::size_t name = slash == std::string::npos ? 0 : slash + 1;
    const std::size_t dot = path.find_last_of('.');
    const std::size_t ending = dot == std::string::npos || dot <= name ? path.size() : dot;
    return path.substr(0, ending) + "-" + std::to_string(number) + path.substr(ending);
}

}  // namespace orvel::phone
