#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace orvel {

// JSON text in and out, exact: 64-bit integers of either sign keep every digit, doubles are read
// correctly rounded and written so that they read back as the same value. What types become is
// JsonForm.h's business. No state outside the objects; nothing depends on the locale.

// What is wrong with a document. `what()` names the place by our own member names and never
// quotes the document, so it may be logged.
struct JsonError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class JsonValue;

// Writes one compact document. The caller keeps the order of calls: inside an object a key before
// each value. Cannot fail.
class JsonWriter {
public:
    void beginObject();
    void endObject();
    void beginArray();
    void endArray();
    void key(std::string_view name);

    void null();
    void boolean(bool value);
    void integer(std::int64_t value);
    void unsignedInteger(std::uint64_t value);
    // A whole number as an integer (-1, not -1.0), anything else in its shortest exact form.
    // JSON has no other numbers: infinities and NaN become 0.
    void number(double value);
    // Each byte that belongs to no UTF-8 character becomes U+FFFD.
    void string(std::string_view value);
    // A value that was read, all of it; of members with equal names the last.
    void value(const JsonValue& read);

    std::string take() { return std::exchange(text, {}); }

private:
    void separate();
    std::string text;
};

// A view of one value of a JsonDocument, valid as long as that. Accessors answer nullopt for a
// value of another type.
class JsonValue {
public:
    bool isNull() const;
    bool isArray() const;
    bool isObject() const;

    std::optional<bool> boolean() const;
    // A whole number in range, however it is written: 2, 2.0 and 2e0 are one number.
    std::optional<std::int64_t> integer() const;
    std::optional<std::uint64_t> unsignedInteger() const;
    std::optional<double> number() const;  // finite
    std::optional<std::string_view> string() const;

    std::size_t size() const;                                      // elements or members, else 0
    JsonValue element(std::size_t index) const;                    // array, index < size()
    std::pair<std::string_view, JsonValue> firstMember() const;    // object, size() > 0
    std::optional<JsonValue> member(std::string_view name) const;  // nullopt: none, or no object

private:
    friend class JsonDocument;
    friend class JsonWriter;
    explicit JsonValue(const void* libraryValue) : value(libraryValue) {}
    const void* value;
};

// A parsed document: UTF-8, one value, nothing but white space around it. Of members with equal
// names the last counts.
class JsonDocument {
public:
    static constexpr std::size_t maxDepth = 32;  // of objects and arrays inside each other

    explicit JsonDocument(std::string_view text);  // throws JsonError
    ~JsonDocument();
    JsonDocument(const JsonDocument&) = delete;
    JsonDocument& operator=(const JsonDocument&) = delete;

    JsonValue root() const;

private:
    struct State;
    std::unique_ptr<State> state;
};

}  // namespace orvel
