#include "OrvelAgent/Platform/Posix/FileDefaults.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <filesystem>

#include "OrvelAgent/Platform/Posix/FileCalls.h"
#include "OrvelAgent/Platform/Posix/Files.h"
#include "OrvelKit/Base/Json.h"

namespace orvel {

namespace {

// The coarsest time stamps that a file system makes.
constexpr time_t stampSeconds = 2;

bool sameTime(const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

bool sameStamp(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
           sameTime(modificationTime(a), modificationTime(b)) &&
           sameTime(changeTime(a), changeTime(b));
}

// Where a link from the path leads, so that a write replaces the file and not the link.
std::filesystem::path targetOf(const std::string& path) {
    std::error_code failed;
    auto target = std::filesystem::canonical(path, failed);
    return failed ? std::filesystem::path(path) : target;
}

template <class Value, class Decode>
std::optional<Value> decoded(const std::optional<std::string>& json, Decode decode) {
    if (!json) return std::nullopt;
    const JsonDocument value(*json);
    return decode(value.root());
}

template <class Value, class Decode>
std::optional<std::map<std::string, Value>> decodedMembers(const std::optional<std::string>& json,
                                                           Decode decode) {
    const auto members = json ? jsonMembers(*json) : std::nullopt;
    if (!members) return std::nullopt;
    std::map<std::string, Value> dictionary;
    for (const auto& member : *members) {
        auto value = decoded<Value>(member.value, decode);
        if (!value) return std::nullopt;
        dictionary.emplace(member.key, *std::move(value));
    }
    return dictionary;
}

std::optional<std::string> text(JsonValue value) {
    const auto found = value.string();
    return found ? std::optional<std::string>(*found) : std::nullopt;
}

template <class Value, class Encode>
std::string encodedMembers(const std::map<std::string, Value>& dictionary, Encode encode) {
    JsonWriter json;
    json.beginObject();
    for (const auto& [key, value] : dictionary) {
        json.key(key);
        encode(json, value);
    }
    json.endObject();
    return json.take();
}

std::string objectOf(const std::vector<JsonMember>& members) {
    std::string object = "{";
    for (const auto& member : members) {
        JsonWriter key;
        key.string(member.key);
        if (object.size() > 1) object += ',';
        object += key.take() + ':' + member.value;
    }
    return object + '}';
}

}  // namespace

FileDefaults::FileDefaults(std::string filePath, Duration writeLimit)
    : path(std::move(filePath)), lockLimit(writeLimit) {}

FileDefaults::Content FileDefaults::readFile() const {
    using Condition = Content::Condition;
    Content content;
    const auto fail = [&](Condition condition, std::string problem) {
        content.condition = condition;
        content.problem = std::move(problem);
        return content;
    };
    struct stat found;
    if (stat(path.c_str(), &found) != 0) {
        const int error = errno;
        const bool isLink = lstat(path.c_str(), &found) == 0;
        if (error == ENOENT && !isLink) return content;
        return fail(Condition::unreadable, describeError(error));
    }
    if (!S_ISREG(found.st_mode)) return fail(Condition::unreadable, "Not a file");
    // Should it have become something else meanwhile: opening that must not wait.
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!file || fstat(file.get(), &content.stamp) != 0) {
        return errno == ENOENT ? content : fail(Condition::unreadable, describeError(errno));
    }
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    content.settled = now.tv_sec - changeTime(content.stamp).tv_sec > stampSeconds;

    Bytes data;
    const int error = readAll(file.get(), maxFileSize, data);
    if (error == EFBIG) return fail(Condition::foreign, "too large");
    if (error != 0) return fail(Condition::unreadable, describeError(error));
    if (data.empty()) {
        content.problem = "The file is empty";
        return content;
    }
    try {
        const JsonDocument document(textOf(data));
    } catch (const JsonError&) {
        return fail(Condition::foreign, "no JSON");
    }
    auto members = jsonMembers(textOf(data));
    if (!members) return fail(Condition::foreign, "no JSON object");
    content.members = *std::move(members);
    return content;
}

void FileDefaults::logOnce(std::string& last, const std::string& line) {
    if (std::exchange(last, line) != line && !line.empty()) {
        std::fprintf(stderr, "orvel: %s\n", line.c_str());
    }
}

const FileDefaults::Content& FileDefaults::current() {
    struct stat now;
    if (cache && cache->settled && stat(path.c_str(), &now) == 0 && sameStamp(now, cache->stamp)) {
        return *cache;
    }
    cache = readFile();
    if (cache->condition == Content::Condition::foreign) {
        FileLock lock;
        if (lock.acquire(path + ".lock", lockLimit) == 0) {
            cache = readFile();
            putForeignAside(*cache);
        }
    }
    logOnce(lastReadProblem,
            cache->problem.empty() ? "" : "the user defaults count as empty: " + cache->problem);
    return *cache;
}

// Under the file's lock.
void FileDefaults::putForeignAside(Content& content) {
    if (content.condition != Content::Condition::foreign) return;
    if (const auto problem = putAside(); !problem.empty()) {
        content.problem += ", and cannot be kept aside: " + problem;
        return;
    }
    content = Content();
}

std::string FileDefaults::putAside() const {
    const auto target = targetOf(path);
    std::string aside;
    struct stat found;
    for (int n = 1; aside.empty() || lstat(aside.c_str(), &found) == 0; ++n) {
        aside = target.string() + ".unreadable-" + std::to_string(n);
    }
    if (rename(target.c_str(), aside.c_str()) != 0) return describeError(errno);
    std::fprintf(stderr, "orvel: the user defaults were no JSON object of ours, kept aside as %s\n",
                 std::filesystem::path(aside).filename().c_str());
    return {};
}

bool FileDefaults::change(const std::string& key, std::optional<std::string> value) {
    const std::lock_guard hold(mutex);
    const auto refuse = [&](const std::string& problem) {
        logOnce(lastWriteProblem, "the user defaults cannot be written: " + problem);
        return false;
    };
    if (const int error = makeFolder(std::filesystem::path(path).parent_path())) {
        return refuse(describeError(error));
    }
    FileLock lock;
    if (const int error = lock.acquire(path + ".lock", lockLimit)) {
        return refuse(describeError(error));
    }
    Content content = readFile();
    putForeignAside(content);
    if (content.condition != Content::Condition::usable) return refuse(content.problem);

    auto& members = content.members;
    const auto place = std::find_if(members.begin(), members.end(),
                                    [&](const auto& member) { return member.key == key; });
    if (place == members.end()) {
        if (!value) return true;
        members.push_back({key, *std::move(value)});
    } else if (!value) {
        members.erase(place);
    } else {
        if (place->value == *value) return true;
        place->value = *std::move(value);
    }
    const int error = write(prettyJson(objectOf(members)) + '\n');
    cache.reset();
    if (error != 0) return refuse(describeError(error));
    lastWriteProblem.clear();
    return true;
}

int FileDefaults::write(const std::string& content) const {
    if (content.size() > maxFileSize) return EFBIG;
    const auto target = targetOf(path);
    const FileDescriptor folder(
        open(target.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder) return errno;
    return replaceFile(folder.get(), target.filename(), bytesOf(content));
}

std::optional<std::string> FileDefaults::json(const std::string& key) {
    const std::lock_guard hold(mutex);
    for (const auto& member : current().members) {
        if (member.key == key) return member.value;
    }
    return std::nullopt;
}

std::optional<std::string> FileDefaults::document() {
    const std::lock_guard hold(mutex);
    const Content& content = current();
    if (content.condition == Content::Condition::unreadable) return std::nullopt;
    return objectOf(content.members);
}

bool FileDefaults::setJson(const std::string& key, std::string_view value) {
    try {
        const JsonDocument alone(value);
        // One level below the root it must still be what a reader accepts.
        const JsonDocument inside('[' + std::string(value) + ']');
    } catch (const JsonError& error) {
        const std::lock_guard hold(mutex);
        logOnce(lastWriteProblem, std::string("a user default cannot be written: ") + error.what());
        return false;
    }
    return change(key, compactJson(value));
}

bool FileDefaults::remove(const std::string& key) {
    return change(key, std::nullopt);
}

std::optional<bool> FileDefaults::boolean(const std::string& key) {
    return decoded<bool>(json(key), [](JsonValue value) { return value.boolean(); });
}

std::optional<std::string> FileDefaults::string(const std::string& key) {
    return decoded<std::string>(json(key), text);
}

std::optional<std::vector<std::string>> FileDefaults::strings(const std::string& key) {
    using Strings = std::vector<std::string>;
    return decoded<Strings>(json(key), [](JsonValue array) -> std::optional<Strings> {
        if (!array.isArray()) return std::nullopt;
        Strings strings;
        for (std::size_t i = 0; i < array.size(); ++i) {
            auto element = text(array.element(i));
            if (!element) return std::nullopt;
            strings.push_back(*std::move(element));
        }
        return strings;
    });
}

std::optional<std::map<std::string, std::string>> FileDefaults::stringDictionary(
    const std::string& key) {
    return decodedMembers<std::string>(json(key), text);
}

std::optional<std::map<std::string, Bytes>> FileDefaults::dataDictionary(const std::string& key) {
    return decodedMembers<Bytes>(json(key), [](JsonValue value) {
        const auto found = value.string();
        return found ? fromBase64(*found) : std::nullopt;
    });
}

std::optional<std::map<std::string, WallTime>> FileDefaults::dateDictionary(
    const std::string& key) {
    return decodedMembers<WallTime>(json(key), [](JsonValue value) {
        const auto seconds = value.number();
        return seconds ? std::optional(fromSecondsSinceReferenceDate(*seconds)) : std::nullopt;
    });
}

bool FileDefaults::set(const std::string& key, bool value) {
    return change(key, value ? "true" : "false");
}

bool FileDefaults::set(const std::string& key, const std::string& value) {
    JsonWriter json;
    json.string(value);
    return change(key, json.take());
}

bool FileDefaults::set(const std::string& key, const std::vector<std::string>& value) {
    JsonWriter json;
    json.beginArray();
    for (const auto& element : value)
        json.string(element);
    json.endArray();
    return change(key, json.take());
}

bool FileDefaults::set(const std::string& key, const std::map<std::string, std::string>& value) {
    return change(key, encodedMembers(value, [](JsonWriter& json, const std::string& member) {
                      json.string(member);
                  }));
}

bool FileDefaults::set(const std::string& key, const std::map<std::string, Bytes>& value) {
    return change(key, encodedMembers(value, [](JsonWriter& json, const Bytes& member) {
                      json.string(base64(member));
                  }));
}

bool FileDefaults::set(const std::string& key, const std::map<std::string, WallTime>& value) {
    return change(key, encodedMembers(value, [](JsonWriter& json, WallTime member) {
                      json.number(secondsSinceReferenceDate(member));
                  }));
}

}  // namespace orvel
