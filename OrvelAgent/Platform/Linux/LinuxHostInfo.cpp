#include "OrvelAgent/Platform/Linux/LinuxHostInfo.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "OrvelAgent/Platform/Posix/Files.h"
#include "OrvelAgent/Platform/Posix/StatePlaces.h"

namespace orvel {

namespace {

constexpr std::size_t machineInfoLimit = 64 * 1024;

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view space = " \t\r";
    const auto begin = text.find_first_not_of(space);
    if (begin == std::string_view::npos) return {};
    return text.substr(begin, text.find_last_not_of(space) + 1 - begin);
}

// As a shell reads it: nothing is special in single quotes, the backslash before some characters
// in double ones, the backslash before any outside.
std::string unquoted(std::string_view text) {
    std::string value;
    char quote = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const bool hasNext = i + 1 < text.size();
        if (c == quote) {
            quote = 0;
        } else if (quote == 0 && (c == '"' || c == '\'')) {
            quote = c;
        } else if (c == '\\' && quote != '\'' && hasNext &&
                   (quote == 0 || std::string_view("\"\\$`").find(text[i + 1]) != text.npos)) {
            value += text[++i];
        } else {
            value += c;
        }
    }
    return value;
}

std::optional<std::string> unlessEmpty(std::string text) {
    return text.empty() ? std::nullopt : std::optional(std::move(text));
}

}  // namespace

std::unique_ptr<HostInfo> HostInfo::create() {
    return std::make_unique<LinuxHostInfo>();
}

LinuxHostInfo::LinuxHostInfo(std::string file) : machineInfoFile(std::move(file)) {}

std::optional<std::string> LinuxHostInfo::prettyHostname(std::string_view text) {
    constexpr std::string_view key = "PRETTY_HOSTNAME=";
    std::optional<std::string> name;
    while (!text.empty()) {
        const auto end = std::min(text.find('\n'), text.size());
        const auto line = trimmed(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
        if (line.starts_with(key)) name = unlessEmpty(unquoted(line.substr(key.size())));
    }
    return name;
}

std::optional<std::string> LinuxHostInfo::nameFromHost(std::string_view hostName) {
    const auto label = hostName.substr(0, hostName.find('.'));
    if (label == "localhost" || label == "(none)") return std::nullopt;
    return unlessEmpty(std::string(label));
}

std::optional<std::string> LinuxHostInfo::computerName() {
    Bytes text;
    const FileDescriptor file(open(machineInfoFile.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (file && readAll(file.get(), machineInfoLimit, text) == 0) {
        if (auto name = prettyHostname(textOf(text))) return name;
    }
    std::array<char, 256> hostName{};
    if (gethostname(hostName.data(), hostName.size() - 1) != 0) return std::nullopt;
    return nameFromHost(hostName.data());
}

std::string LinuxHostInfo::homeFolder() {
    return homeFolderOfUser();
}

std::optional<std::string> LinuxHostInfo::shortVersion() {
    return unlessEmpty(ORVEL_VERSION);
}

std::optional<std::string> LinuxHostInfo::buildVersion() {
    return unlessEmpty(ORVEL_BUILD);
}

std::optional<std::string> LinuxHostInfo::bundleIdentifier() {
    return std::nullopt;
}

}  // namespace orvel
