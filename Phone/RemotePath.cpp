#include "Phone/RemotePath.h"

namespace orvel::phone {

std::optional<std::string> RemotePath::toSend(std::string_view path) {
    if (path == "~") return std::nullopt;
    if (path.starts_with("~/")) {
        path.remove_prefix(2);
        while (path.starts_with('/'))
            path.remove_prefix(1);
    }
    if (path.empty()) return std::nullopt;
    return std::string(path);
}

std::optional<std::string> RemotePath::localName(std::string_view path) {
    while (path.ends_with('/'))
        path.remove_suffix(1);
    const std::size_t slash = path.rfind('/');
    const std::string_view name = slash == std::string_view::npos ? path : path.substr(slash + 1);
    if (name.empty() || name == "." || name == ".." || path == "~" ||
        name.find('\0') != std::string_view::npos) {
        return std::nullopt;
    }
    return std::string(name);
}

}  // namespace orvel::phone
