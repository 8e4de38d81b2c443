// The contract of the user defaults: NSUserDefaults is safe on any thread, sees what other
// processes write, and takes property lists only (anything else raises an exception). A value set
// is in the hands of another process at once; synchronizing waits until that one has it on the
// disk, and says whether it could. Our queues' threads have no autorelease pool of their own.
#include "OrvelAgent/Platform/MacOS/UserDefaults.h"

#import <Foundation/Foundation.h>

#include <cstdio>

#include "OrvelAgent/Platform/MacOS/CFOwner.h"
#include "OrvelAgent/Platform/MacOS/Text.h"
#include "OrvelKit/Base/Json.h"

namespace orvel {

namespace {

id objectAt(const std::string& key) {
    @autoreleasepool {
        return [NSUserDefaults.standardUserDefaults objectForKey:nsString(key)];
    }
}

// nil removes.
bool store(const std::string& key, id value) {
    @autoreleasepool {
        [NSUserDefaults.standardUserDefaults setObject:value forKey:nsString(key)];
    }
    if (CFPreferencesAppSynchronize(kCFPreferencesCurrentApplication)) return true;
    std::fputs("orvel: the user defaults cannot be written\n", stderr);
    return false;
}

bool isBoolean(id value) {
    return [value isKindOfClass:NSNumber.class] &&
           CFGetTypeID((__bridge CFTypeRef)value) == CFBooleanGetTypeID();
}

std::optional<std::string> stringFrom(id value) {
    if (![value isKindOfClass:NSString.class]) return std::nullopt;
    return textOf(static_cast<NSString*>(value));
}

Bytes bytesOfData(NSData* data) {
    const auto* const bytes = static_cast<const std::uint8_t*>(data.bytes);
    return Bytes(bytes, bytes + data.length);
}

std::optional<Bytes> dataFrom(id value) {
    if (![value isKindOfClass:NSData.class]) return std::nullopt;
    return bytesOfData(value);
}

std::optional<WallTime> dateFrom(id value) {
    if (![value isKindOfClass:NSDate.class]) return std::nullopt;
    return fromSecondsSinceReferenceDate(
        static_cast<NSDate*>(value).timeIntervalSinceReferenceDate);
}

// nullopt when one member is of another type: foreign content counts as empty as a whole.
template <class Value>
std::optional<std::map<std::string, Value>> dictionaryFrom(id value,
                                                           std::optional<Value> (*member)(id)) {
    if (![value isKindOfClass:NSDictionary.class]) return std::nullopt;
    NSDictionary* const members = value;
    std::map<std::string, Value> dictionary;
    for (id name in members) {
        const auto text = stringFrom(name);
        auto converted = member(members[name]);
        if (!text || !converted) return std::nullopt;
        dictionary.emplace(*text, *std::move(converted));
    }
    return dictionary;
}

template <class Value, class Convert>
NSDictionary* dictionaryOf(const std::map<std::string, Value>& values, Convert convert) {
    NSMutableDictionary* const members = [NSMutableDictionary dictionary];
    for (const auto& [name, value] : values)
        members[nsString(name)] = convert(value);
    return members;
}

void write(JsonWriter& json, id value);

void writeMembers(JsonWriter& json, NSDictionary* members) {
    json.beginObject();
    NSArray* const names = [members.allKeys sortedArrayUsingSelector:@selector(compare:)];
    for (NSString* name in names) {
        json.key(textOf(name));
        write(json, members[name]);
    }
    json.endObject();
}

void write(JsonWriter& json, id value) {
    if (isBoolean(value)) {
        json.boolean([value boolValue]);
    } else if ([value isKindOfClass:NSNumber.class]) {
        json.number([value doubleValue]);
    } else if ([value isKindOfClass:NSDate.class]) {
        json.number(static_cast<NSDate*>(value).timeIntervalSinceReferenceDate);
    } else if ([value isKindOfClass:NSData.class]) {
        json.string(base64(bytesOfData(value)));
    } else if ([value isKindOfClass:NSArray.class]) {
        json.beginArray();
        for (id element in static_cast<NSArray*>(value))
            write(json, element);
        json.endArray();
    } else if ([value isKindOfClass:NSDictionary.class]) {
        writeMembers(json, value);
    } else {
        json.string(stringFrom(value).value_or(std::string()));
    }
}

}  // namespace

std::optional<bool> UserDefaults::boolean(const std::string& key) {
    const id value = objectAt(key);
    if (!isBoolean(value)) return std::nullopt;
    return [value boolValue];
}

std::optional<std::string> UserDefaults::string(const std::string& key) {
    return stringFrom(objectAt(key));
}

std::optional<std::vector<std::string>> UserDefaults::strings(const std::string& key) {
    const id value = objectAt(key);
    if (![value isKindOfClass:NSArray.class]) return std::nullopt;
    std::vector<std::string> strings;
    for (id element in static_cast<NSArray*>(value)) {
        auto text = stringFrom(element);
        if (!text) return std::nullopt;
        strings.push_back(*std::move(text));
    }
    return strings;
}

std::optional<std::map<std::string, std::string>> UserDefaults::stringDictionary(
    const std::string& key) {
    return dictionaryFrom(objectAt(key), stringFrom);
}

std::optional<std::map<std::string, Bytes>> UserDefaults::dataDictionary(const std::string& key) {
    return dictionaryFrom(objectAt(key), dataFrom);
}

std::optional<std::map<std::string, WallTime>> UserDefaults::dateDictionary(
    const std::string& key) {
    return dictionaryFrom(objectAt(key), dateFrom);
}

bool UserDefaults::set(const std::string& key, bool value) {
    return store(key, value ? @YES : @NO);
}

bool UserDefaults::set(const std::string& key, const std::string& value) {
    return store(key, nsString(value));
}

bool UserDefaults::set(const std::string& key, const std::vector<std::string>& value) {
    NSMutableArray<NSString*>* const array = [NSMutableArray array];
    for (const auto& element : value)
        [array addObject:nsString(element)];
    return store(key, array);
}

bool UserDefaults::set(const std::string& key, const std::map<std::string, std::string>& value) {
    return store(key, dictionaryOf(value, [](const std::string& text) { return nsString(text); }));
}

bool UserDefaults::set(const std::string& key, const std::map<std::string, Bytes>& value) {
    return store(key, dictionaryOf(value, [](const Bytes& bytes) {
                     return [NSData dataWithBytes:bytes.data() length:bytes.size()];
                 }));
}

bool UserDefaults::set(const std::string& key, const std::map<std::string, WallTime>& value) {
    return store(key, dictionaryOf(value, [](WallTime date) {
                     return [NSDate
                         dateWithTimeIntervalSinceReferenceDate:secondsSinceReferenceDate(date)];
                 }));
}

bool UserDefaults::remove(const std::string& key) {
    return store(key, nil);
}

std::optional<std::string> UserDefaults::json(const std::string& key) {
    const id value = objectAt(key);
    if (!value) return std::nullopt;
    @autoreleasepool {
        JsonWriter json;
        write(json, value);
        return json.take();
    }
}

bool UserDefaults::setJson(const std::string& key, std::string_view value) {
    NSData* const text = [NSData dataWithBytes:value.data() length:value.size()];
    const id parsed = [NSJSONSerialization JSONObjectWithData:text
                                                      options:NSJSONReadingFragmentsAllowed
                                                        error:nil];
    // JSON's null has no place in a property list.
    if (!parsed || ![NSPropertyListSerialization propertyList:parsed
                                             isValidForFormat:NSPropertyListBinaryFormat_v1_0]) {
        std::fputs("orvel: a user default cannot be written: no property list\n", stderr);
        return false;
    }
    return store(key, parsed);
}

std::optional<std::string> UserDefaults::document() {
    NSDictionary* const all = CFBridgingRelease(
        CFPreferencesCopyMultiple(nullptr, kCFPreferencesCurrentApplication,
                                  kCFPreferencesCurrentUser, kCFPreferencesAnyHost));
    if (!all) return std::nullopt;
    @autoreleasepool {
        JsonWriter json;
        writeMembers(json, all);
        return json.take();
    }
}

}  // namespace orvel
