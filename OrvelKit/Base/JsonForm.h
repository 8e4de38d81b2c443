#pragma once

#include <concepts>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "OrvelKit/Base/Bytes.h"
#include "OrvelKit/Base/Clock.h"
#include "OrvelKit/Base/Json.h"

namespace orvel {

// How a type of ours looks in JSON, said once for both directions. Booleans, numbers, strings,
// vectors, Bytes (base64) and WallTime (seconds since 2001-01-01 00:00:00 UTC) need nothing; a
// struct lists its members, an enumeration the strings of its cases, a wrapper its raw value:
//
//     template <>
//     struct JsonForm<Hello> {
//         static void members(auto& json, auto& hello) {
//             json("version", hello.version);
//             json("pin", hello.pin);  // optional: absent or null when read, never written empty
//         }
//     };
//     template <>
//     struct JsonForm<MouseButton> {
//         static constexpr JsonName<MouseButton> names[] = {{MouseButton::left, "left"}, ...};
//     };
//     template <>
//     struct JsonForm<Modifiers> {
//         static constexpr auto raw = &Modifiers::rawValue;
//     };
//
// Unknown members are ignored. Numbers out of a member's range are errors.
template <class T>
struct JsonForm;

template <class Enum>
struct JsonName {
    Enum value;
    const char* name;
};

// One case of an enumeration with payloads, of which std::variant is our form: an object whose
// only member is named after the case and holds the payload. `payload` lists that like `members`;
// an unnamed payload is called "_0".
//
//     template <>
//     struct JsonCase<Control::Move> {
//         static constexpr const char* name = "move";
//         static void payload(auto& json, auto& move) { json("dx", move.dx); ... }
//     };
template <class T>
struct JsonCase;

template <class T>
std::string encodeJson(const T& value);

// Throws JsonError.
template <class T>
T decodeJson(std::string_view text);

template <class Enum>
const char* jsonName(Enum value) {
    for (const auto& row : JsonForm<Enum>::names) {
        if (row.value == value) return row.name;
    }
    std::abort();
}

// From here on: how that is done.

// Where a decoder stands. Errors name it by our own member names: nothing of the document shows.
struct JsonPlace {
    const JsonPlace* outer = nullptr;
    const char* name = nullptr;  // of a member or case, or else
    std::size_t index = 0;       // of an element

    [[noreturn]] void fail(const char* problem) const;
};

namespace jsonform {

template <class T, template <class...> class Template>
struct IsA : std::false_type {};
template <template <class...> class Template, class... Arguments>
struct IsA<Template<Arguments...>, Template> : std::true_type {};

template <class T>
concept Optional = IsA<T, std::optional>::value;
template <class T>
concept Number = (std::integral<T> || std::same_as<T, double>)&&!std::same_as<T, bool>;
template <class T>
concept List = IsA<T, std::vector>::value && !std::same_as<T, Bytes>;
template <class T>
concept Union = IsA<T, std::variant>::value;
template <class T>
concept Named = requires {
    JsonForm<T>::names;
};
template <class T>
concept Raw = requires {
    JsonForm<T>::raw;
};

template <class T>
void encode(JsonWriter& json, const T& value);
template <class T>
T decode(JsonValue json, const JsonPlace& place);

// What `members` and `payload` get as their `json`.
struct Encoder {
    JsonWriter& json;

    template <class T>
    void operator()(const char* name, const T& value) {
        if constexpr (Optional<T>) {
            if (value) (*this)(name, *value);
        } else {
            json.key(name);
            encode(json, value);
        }
    }
};

struct Decoder {
    JsonValue json;
    const JsonPlace& place;

    template <class T>
    void operator()(const char* name, T& value) {
        const JsonPlace member{&place, name};
        const auto found = json.member(name);
        if constexpr (Optional<T>) {
            value.reset();
            if (found && !found->isNull()) value = decode<typename T::value_type>(*found, member);
        } else {
            if (!found) member.fail("is missing");
            value = decode<T>(*found, member);
        }
    }
};

template <class T>
void encode(JsonWriter& json, const T& value) {
    if constexpr (std::same_as<T, bool>) {
        json.boolean(value);
    } else if constexpr (std::same_as<T, double>) {
        json.number(value);
    } else if constexpr (std::signed_integral<T>) {
        json.integer(value);
    } else if constexpr (std::unsigned_integral<T>) {
        json.unsignedInteger(value);
    } else if constexpr (std::same_as<T, std::string>) {
        json.string(value);
    } else if constexpr (std::same_as<T, Bytes>) {
        json.string(base64(value));
    } else if constexpr (std::same_as<T, WallTime>) {
        json.number(secondsSinceReferenceDate(value));
    } else if constexpr (List<T>) {
        json.beginArray();
        for (const auto& element : value)
            encode(json, element);
        json.endArray();
    } else if constexpr (Union<T>) {
        json.beginObject();
        std::visit(
            [&]<class Case>(const Case& chosen) {
                json.key(JsonCase<Case>::name);
                json.beginObject();
                Encoder members{json};
                JsonCase<Case>::payload(members, chosen);
                json.endObject();
            },
            value);
        json.endObject();
    } else if constexpr (Named<T>) {
        json.string(jsonName(value));
    } else if constexpr (Raw<T>) {
        encode(json, value.*JsonForm<T>::raw);
    } else {
        json.beginObject();
        Encoder members{json};
        JsonForm<T>::members(members, value);
        json.endObject();
    }
}

// The value inside `found`, or the end of decoding.
template <class T>
T require(std::optional<T> found, const JsonPlace& place, const char* problem) {
    if (!found) place.fail(problem);
    return *std::move(found);
}

template <Number T>
T decodeNumber(JsonValue json, const JsonPlace& place) {
    if constexpr (std::same_as<T, double>) {
        return require(json.number(), place, "is no number");
    } else {
        const auto wide = [&] {
            if constexpr (std::signed_integral<T>) return json.integer();
            if constexpr (std::unsigned_integral<T>) return json.unsignedInteger();
        }();
        if (!wide || !std::in_range<T>(*wide)) place.fail("is no whole number in range");
        return static_cast<T>(*wide);
    }
}

template <Union T, std::size_t... index>
T decodeUnion(JsonValue json, const JsonPlace& place, std::index_sequence<index...>) {
    if (!json.isObject()) place.fail("is no object");
    if (json.size() != 1) throw JsonError("Invalid number of keys found, expected one.");
    const auto member = json.firstMember();
    std::optional<T> value;
    const auto tryCase = [&]<class Case>(std::in_place_type_t<Case>) {
        if (value || member.first != JsonCase<Case>::name) return;
        const JsonPlace inside{&place, JsonCase<Case>::name};
        if (!member.second.isObject()) inside.fail("is no object");
        Case decoded;
        Decoder members{member.second, inside};
        JsonCase<Case>::payload(members, decoded);
        value.emplace(std::move(decoded));
    };
    (tryCase(std::in_place_type<std::variant_alternative_t<index, T>>), ...);
    if (!value) place.fail("names no known case");
    return *std::move(value);
}

template <class T>
T decode(JsonValue json, const JsonPlace& place) {
    if constexpr (std::same_as<T, bool>) {
        return require(json.boolean(), place, "is no boolean");
    } else if constexpr (Number<T>) {
        return decodeNumber<T>(json, place);
    } else if constexpr (std::same_as<T, std::string>) {
        return std::string(require(json.string(), place, "is no string"));
    } else if constexpr (std::same_as<T, Bytes>) {
        const auto text = require(json.string(), place, "is no string");
        return require(fromBase64(text), place, "is no base64");
    } else if constexpr (std::same_as<T, WallTime>) {
        return fromSecondsSinceReferenceDate(require(json.number(), place, "is no number"));
    } else if constexpr (List<T>) {
        if (!json.isArray()) place.fail("is no array");
        T list;
        list.reserve(json.size());
        for (std::size_t i = 0; i < json.size(); ++i) {
            list.push_back(decode<typename T::value_type>(json.element(i), {&place, nullptr, i}));
        }
        return list;
    } else if constexpr (Union<T>) {
        return decodeUnion<T>(json, place, std::make_index_sequence<std::variant_size_v<T>>());
    } else if constexpr (Named<T>) {
        const auto text = require(json.string(), place, "is no string");
        for (const auto& row : JsonForm<T>::names) {
            if (text == row.name) return row.value;
        }
        place.fail("is none of its values");
    } else if constexpr (Raw<T>) {
        T value;
        auto& raw = value.*JsonForm<T>::raw;
        raw = decode<std::remove_reference_t<decltype(raw)>>(json, place);
        return value;
    } else {
        if (!json.isObject()) place.fail("is no object");
        T record;
        Decoder members{json, place};
        JsonForm<T>::members(members, record);
        return record;
    }
}

}  // namespace jsonform

template <class T>
std::string encodeJson(const T& value) {
    JsonWriter json;
    jsonform::encode(json, value);
    return json.take();
}

template <class T>
T decodeJson(std::string_view text) {
    const JsonDocument document(text);
    return jsonform::decode<T>(document.root(), JsonPlace{});
}

}  // namespace orvel
