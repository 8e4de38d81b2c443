#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvel {

// JSON kept as text, so that what passes through stays as it was written, digit for digit. All
// text handed in has been accepted by JsonDocument; only white space between the tokens changes.

struct JsonMember {
    std::string key;    // decoded
    std::string value;  // compact JSON
    bool operator==(const JsonMember&) const = default;
};

// The members of an object in their order; of those with equal keys the last counts. nullopt for
// another value.
std::optional<std::vector<JsonMember>> jsonMembers(std::string_view object);

std::string compactJson(std::string_view value);
// Two spaces a level, a line for each member and element; no newline at the end.
std::string prettyJson(std::string_view value);

}  // namespace orvel
