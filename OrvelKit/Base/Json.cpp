#include "OrvelKit/Base/Json.h"

#include <algorithm>
#include <array>
#include <boost/json/basic_parser_impl.hpp>
#include <boost/json/monotonic_resource.hpp>
#include <boost/json/value.hpp>
#include <boost/json/value_stack.hpp>
#include <charconv>
#include <cmath>
#include <locale>
#include <span>
#include <sstream>

#include "OrvelKit/Base/Unicode.h"

namespace orvel {

namespace {

namespace json = boost::json;

template <class Number>
void appendNumber(std::string& text, Number value) {
    std::array<char, 32> digits;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
    text.append(digits.data(), end);
}

// -2^63 does not count: the library gives it for longer integers that rounding brings there, too.
template <class Integer>
std::optional<Integer> exactly(double value) {
    constexpr double below = std::is_signed_v<Integer> ? -0x1p63 : -1;
    constexpr double end = std::is_signed_v<Integer> ? 0x1p63 : 0x1p64;
    if (!(value > below && value < end) || value != std::trunc(value)) return std::nullopt;
    return static_cast<Integer>(value);
}

const json::value& valueAt(const void* pointer) {
    return *static_cast<const json::value*>(pointer);
}

// Builds the document as the library's own parser does, but for numbers with a point or an
// exponent: the library's conversion can be off in the last place.
struct Builder {
    static constexpr std::size_t max_object_size = json::object::max_size();
    static constexpr std::size_t max_array_size = json::array::max_size();
    static constexpr std::size_t max_key_size = json::string::max_size();
    static constexpr std::size_t max_string_size = json::string::max_size();

    using Error = json::error_code;
    using Text = json::string_view;

    json::value_stack stack;
    std::optional<std::istringstream> conversion;

    explicit Builder(std::span<unsigned char> scratch)
        : stack({}, scratch.data(), scratch.size()) {}

    bool on_document_begin(Error&) { return true; }
    bool on_document_end(Error&) { return true; }
    bool on_object_begin(Error&) { return true; }
    bool on_object_end(std::size_t n, Error&) { return stack.push_object(n), true; }
    bool on_array_begin(Error&) { return true; }
    bool on_array_end(std::size_t n, Error&) { return stack.push_array(n), true; }
    bool on_key_part(Text part, std::size_t, Error&) { return stack.push_chars(part), true; }
    bool on_key(Text rest, std::size_t, Error&) { return stack.push_key(rest), true; }
    bool on_string_part(Text part, std::size_t, Error&) { return stack.push_chars(part), true; }
    bool on_string(Text rest, std::size_t, Error&) { return stack.push_string(rest), true; }
    bool on_number_part(Text, Error&) { return true; }
    bool on_int64(std::int64_t value, Text, Error&) { return stack.push_int64(value), true; }
    bool on_uint64(std::uint64_t value, Text, Error&) { return stack.push_uint64(value), true; }
    bool on_bool(bool value, Error&) { return stack.push_bool(value), true; }
    bool on_null(Error&) { return stack.push_null(), true; }
    bool on_comment_part(Text, Error&) { return true; }
    bool on_comment(Text, Error&) { return true; }

    bool on_double(double approximate, Text text, Error& error) {
        // Up to 15 digits without exponent are an exact integer divided by an exact power of ten:
        // rounded once, hence correctly.
        const bool exact = text.size() <= 16 && text.find_first_of("eE") == Text::npos;
        const double value = exact ? approximate : convert(text);
        if (!std::isfinite(value)) {
            error = json::error::exponent_overflow;
            return false;
        }
        stack.push_double(value);
        return true;
    }

    double convert(Text text) {
        if (!conversion) {
            conversion.emplace();
            conversion->imbue(std::locale::classic());
        }
        conversion->clear();
        conversion->str(std::string(text));
        double value = 0;
        *conversion >> value;
        // The text is a number for sure, so failure means too large or, in some libraries, too
        // small; the second has the right value all the same.
        return conversion->fail() && std::abs(value) > 1 ? HUGE_VAL : value;
    }
};

}  // namespace

void JsonWriter::separate() {
    if (text.empty()) return;
    const char last = text.back();
    if (last != '{' && last != '[' && last != ':') text += ',';
}

void JsonWriter::beginObject() {
    separate();
    text += '{';
}

void JsonWriter::endObject() {
    text += '}';
}

void JsonWriter::beginArray() {
    separate();
    text += '[';
}

void JsonWriter::endArray() {
    text += ']';
}

void JsonWriter::key(std::string_view name) {
    string(name);
    text += ':';
}

void JsonWriter::null() {
    separate();
    text += "null";
}

void JsonWriter::boolean(bool value) {
    separate();
    text += value ? "true" : "false";
}

void JsonWriter::integer(std::int64_t value) {
    separate();
    appendNumber(text, value);
}

void JsonWriter::unsignedInteger(std::uint64_t value) {
    separate();
    appendNumber(text, value);
}

void JsonWriter::number(double value) {
    constexpr double exactIntegers = 0x1p53;
    if (!std::isfinite(value)) return integer(0);
    if (std::abs(value) <= exactIntegers && value == std::trunc(value)) {
        return integer(static_cast<std::int64_t>(value));
    }
    separate();
    appendNumber(text, value);
}

void JsonWriter::string(std::string_view value) {
    constexpr std::string_view hex = "0123456789abcdef";
    separate();
    text.reserve(text.size() + value.size() + 2);
    text += '"';
    while (!value.empty()) {
        // Most text goes over in one piece.
        const std::size_t plain = static_cast<std::size_t>(
            std::find_if(value.begin(), value.end(),
                         [](char c) {
                             const auto byte = static_cast<std::uint8_t>(c);
                             return byte < 0x20 || byte >= 0x80 || c == '"' || c == '\\';
                         }) -
            value.begin());
        text += value.substr(0, plain);
        value.remove_prefix(plain);
        if (value.empty()) break;
        const auto byte = static_cast<std::uint8_t>(value.front());
        std::size_t taken = 1;
        if (byte >= 0x80) {
            const std::size_t length = characterLength(value);
            taken = std::max<std::size_t>(length, 1);
            text += length > 0 ? value.substr(0, length) : "\uFFFD";
        } else if (byte == '"' || byte == '\\') {
            text += '\\';
            text += static_cast<char>(byte);
        } else if (byte == '\n') {
            text += "\\n";
        } else if (byte == '\t') {
            text += "\\t";
        } else if (byte == '\r') {
            text += "\\r";
        } else {
            text += "\\u00";
            text += hex[byte >> 4];
            text += hex[byte & 15];
        }
        value.remove_prefix(taken);
    }
    text += '"';
}

void JsonWriter::value(const JsonValue& read) {
    const json::value& found = valueAt(read.value);
    if (const auto* object = found.if_object()) {
        beginObject();
        for (const auto& member : *object) {
            key({member.key().data(), member.key().size()});
            value(JsonValue(&member.value()));
        }
        endObject();
    } else if (const auto* array = found.if_array()) {
        beginArray();
        for (const auto& element : *array)
            value(JsonValue(&element));
        endArray();
    } else if (const auto truth = read.boolean()) {
        boolean(*truth);
    } else if (const auto signedNumber = read.integer()) {
        integer(*signedNumber);
    } else if (const auto unsignedNumber = read.unsignedInteger()) {
        unsignedInteger(*unsignedNumber);
    } else if (const auto real = read.number()) {
        number(*real);
    } else if (const auto characters = read.string()) {
        string(*characters);
    } else {
        null();
    }
}

bool JsonValue::isNull() const {
    return valueAt(value).is_null();
}

bool JsonValue::isArray() const {
    return valueAt(value).is_array();
}

bool JsonValue::isObject() const {
    return valueAt(value).is_object();
}

std::optional<bool> JsonValue::boolean() const {
    const bool* found = valueAt(value).if_bool();
    return found ? std::optional(*found) : std::nullopt;
}

std::optional<std::int64_t> JsonValue::integer() const {
    const json::value& found = valueAt(value);
    if (const auto* number = found.if_int64()) return *number;
    if (const auto* number = found.if_double()) return exactly<std::int64_t>(*number);
    return std::nullopt;  // the library keeps as uint64 only what int64 cannot hold
}

std::optional<std::uint64_t> JsonValue::unsignedInteger() const {
    const json::value& found = valueAt(value);
    if (const auto* number = found.if_uint64()) return *number;
    if (const auto* number = found.if_int64()) {
        return *number >= 0 ? std::optional(static_cast<std::uint64_t>(*number)) : std::nullopt;
    }
    if (const auto* number = found.if_double()) return exactly<std::uint64_t>(*number);
    return std::nullopt;
}

std::optional<double> JsonValue::number() const {
    const json::value& found = valueAt(value);
    if (const auto* number = found.if_double()) return *number;
    if (const auto* number = found.if_int64()) return static_cast<double>(*number);
    if (const auto* number = found.if_uint64()) return static_cast<double>(*number);
    return std::nullopt;
}

std::optional<std::string_view> JsonValue::string() const {
    const json::string* found = valueAt(value).if_string();
    if (!found) return std::nullopt;
    return std::string_view(found->data(), found->size());
}

std::size_t JsonValue::size() const {
    const json::value& found = valueAt(value);
    if (const auto* array = found.if_array()) return array->size();
    if (const auto* object = found.if_object()) return object->size();
    return 0;
}

JsonValue JsonValue::element(std::size_t index) const {
    return JsonValue(&valueAt(value).get_array().at(index));
}

std::pair<std::string_view, JsonValue> JsonValue::firstMember() const {
    const json::key_value_pair& member = *valueAt(value).get_object().begin();
    return {std::string_view(member.key().data(), member.key().size()), JsonValue(&member.value())};
}

std::optional<JsonValue> JsonValue::member(std::string_view name) const {
    const json::object* object = valueAt(value).if_object();
    const json::value* found = object ? object->if_contains({name.data(), name.size()}) : nullptr;
    return found ? std::optional(JsonValue(found)) : std::nullopt;
}

struct JsonDocument::State {
    // Most documents are a short control message: they fit here.
    std::array<unsigned char, 1024> firstBlock;
    json::monotonic_resource memory{firstBlock.data(), firstBlock.size()};
    std::optional<json::value> root;
};

JsonDocument::JsonDocument(std::string_view text) : state(std::make_unique<State>()) {
    std::array<unsigned char, 1024> scratch;
    json::parse_options options;
    options.max_depth = maxDepth;
    json::basic_parser<Builder> parser(options, scratch);
    json::value_stack& stack = parser.handler().stack;
    stack.reset(&state->memory);
    json::error_code error;
    const std::size_t used = parser.write_some(false, text.data(), text.size(), error);
    if (!error && used < text.size()) error = json::error::extra_data;
    if (error) throw JsonError("not JSON: " + error.message());
    state->root.emplace(stack.release());
}

JsonDocument::~JsonDocument() = default;

JsonValue JsonDocument::root() const {
    return JsonValue(&*state->root);
}

}  // namespace orvel
