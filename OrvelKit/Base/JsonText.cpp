#include "OrvelKit/Base/JsonText.h"

#include <algorithm>
#include <unordered_map>

#include "OrvelKit/Base/Json.h"

namespace orvel {

namespace {

// Takes the next token off `text`: a bracket, comma or colon, or a whole string, number or word.
// Empty at the end.
std::string_view nextToken(std::string_view& text) {
    constexpr std::string_view space = " \t\r\n";
    text.remove_prefix(std::min(text.find_first_not_of(space), text.size()));
    if (text.empty()) return text;
    std::size_t length = 1;
    if (text.front() == '"') {
        while (text[length] != '"')
            length += text[length] == '\\' ? 2 : 1;
        ++length;
    } else if (std::string_view("{}[],:").find(text.front()) == std::string_view::npos) {
        length = std::min(text.find_first_of(" \t\r\n,:]}"), text.size());
    }
    const auto token = text.substr(0, length);
    text.remove_prefix(length);
    return token;
}

bool opens(std::string_view token) {
    return token == "{" || token == "[";
}
bool closes(std::string_view token) {
    return token == "}" || token == "]";
}

// The whole value that begins with `token`, compact.
std::string takeValue(std::string_view token, std::string_view& text) {
    std::string value(token);
    int depth = opens(token) ? 1 : 0;
    while (depth > 0) {
        token = nextToken(text);
        value += token;
        depth += opens(token) ? 1 : closes(token) ? -1 : 0;
    }
    return value;
}

}  // namespace

std::optional<std::vector<JsonMember>> jsonMembers(std::string_view text) {
    if (nextToken(text) != "{") return std::nullopt;
    std::vector<JsonMember> members;
    std::unordered_map<std::string, std::size_t> places;
    for (auto token = nextToken(text); token != "}"; token = nextToken(text)) {
        if (token == ",") continue;
        const JsonDocument key(token);
        nextToken(text);  // the colon
        JsonMember member{std::string(*key.root().string()), takeValue(nextToken(text), text)};
        const auto [place, isNew] = places.try_emplace(member.key, members.size());
        if (isNew) {
            members.push_back(std::move(member));
        } else {
            members[place->second] = std::move(member);
        }
    }
    return members;
}

std::string compactJson(std::string_view text) {
    return takeValue(nextToken(text), text);
}

std::string prettyJson(std::string_view text) {
    std::string pretty;
    std::size_t depth = 0;
    const auto newLine = [&] {
        pretty += '\n';
        pretty.append(2 * depth, ' ');
    };
    std::string_view previous;
    for (auto token = nextToken(text); !token.empty(); token = nextToken(text)) {
        if (closes(token)) {
            --depth;
            if (!opens(previous)) newLine();
        } else if (opens(previous) || previous == ",") {
            newLine();
        }
        pretty += token;
        if (token == ":") pretty += ' ';
        if (opens(token)) ++depth;
        previous = token;
    }
    return pretty;
}

}  // namespace orvel
