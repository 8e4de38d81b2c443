#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace orvel::phone {

// Paths on the computer, as a person writes them here. Without a / in front they are in the home
// folder there; ~ and ~/ in front are its name.
struct RemotePath {
    // As the agent understands it; nullopt: the home folder itself.
    static std::optional<std::string> toSend(std::string_view path);

    // What a file fetched from there is called here: the last component of the path, whatever the
    // computer calls it. nullopt when that is no name for a file: empty, . or ..
    static std::optional<std::string> localName(std::string_view path);

    RemotePath() = delete;
};

}  // namespace orvel::phone
