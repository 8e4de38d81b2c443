#include "OrvelAgent/App/DefaultsCommand.h"

#include <ostream>

#include "OrvelKit/Base/Json.h"
#include "OrvelKit/Base/JsonText.h"

namespace orvel {

namespace {

enum ExitStatus { succeeded = 0, failed = 1, misused = 2 };

constexpr const char* usage =
    "usage: orvel-agent [--state-dir DIR] defaults read [KEY]\n"
    "       orvel-agent [--state-dir DIR] defaults write KEY VALUE\n"
    "       orvel-agent [--state-dir DIR] defaults delete KEY\n"
    "VALUE is JSON; a bare word is a string.\n";

int readDefaults(JsonDefaults& defaults, const std::string* key, std::ostream& out,
                 std::ostream& err) {
    const auto document = defaults.document();
    if (!document) {
        err << "the defaults cannot be read\n";
        return failed;
    }
    const auto value = key ? defaults.json(*key) : document;
    if (!value) {
        err << "there is no such key\n";
        return failed;
    }
    out << prettyJson(*value) << '\n';
    return succeeded;
}

int writeDefault(JsonDefaults& defaults, const std::string& key, const std::string& value,
                 std::ostream& err) {
    try {
        const JsonDocument document(value);
        return defaults.setJson(key, value) ? succeeded : failed;
    } catch (const JsonError& error) {
        const auto first = value.find_first_not_of(" \t\r\n");
        const bool meansJson = first != std::string::npos &&
                               std::string("{[\"").find(value[first]) != std::string::npos;
        if (!meansJson) return defaults.set(key, value) ? succeeded : failed;
        err << error.what() << '\n';
        return misused;
    }
}

}  // namespace

int runDefaultsCommand(JsonDefaults& defaults, const std::vector<std::string>& arguments,
                       std::ostream& out, std::ostream& err) {
    const auto is = [&](const char* action, std::size_t count) {
        return arguments.size() == count && arguments.front() == action;
    };
    if (is("read", 1)) return readDefaults(defaults, nullptr, out, err);
    if (is("read", 2)) return readDefaults(defaults, &arguments[1], out, err);
    if (is("write", 3)) return writeDefault(defaults, arguments[1], arguments[2], err);
    if (is("delete", 2)) return defaults.remove(arguments[1]) ? succeeded : failed;
    err << usage;
    return misused;
}

}  // namespace orvel
