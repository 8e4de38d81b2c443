#include "OrvelAgent/Platform/Linux/DesktopEntry.h"

#include <algorithm>
#include <cstdlib>

namespace orvel {

namespace {

constexpr std::string_view spaces = " \t\r";

std::string_view trimmed(std::string_view text) {
    const auto begin = text.find_first_not_of(spaces);
    if (begin == std::string_view::npos) return {};
    return text.substr(begin, text.find_last_not_of(spaces) - begin + 1);
}

std::string unescaped(std::string_view value) {
    std::string result;
    for (std::size_t i = 0; i < value.size(); ++i) {
        if (value[i] != '\\' || i + 1 == value.size()) {
            result += value[i];
            continue;
        }
        switch (value[++i]) {
            case 's':
                result += ' ';
                break;
            case 'n':
                result += '\n';
                break;
            case 't':
                result += '\t';
                break;
            case 'r':
                result += '\r';
                break;
            default:
                result += value[i];
        }
    }
    return result;
}

// What a command line runs, without its folder; empty when that is an interpreter or a starter,
// which says nothing about the application.
std::string programOf(std::string_view command) {
    static constexpr std::string_view starters[] = {
        "sh",   "bash", "python", "python3", "perl", "java",    "flatpak",
        "snap", "wine", "gjs",    "pkexec",  "sudo", "xdg-open"};
    while (!(command = trimmed(command)).empty()) {
        const bool isQuoted = command[0] == '"';
        if (isQuoted) command.remove_prefix(1);
        const auto end = std::min(command.find_first_of(isQuoted ? "\"" : " \t"), command.size());
        const auto word = command.substr(0, end);
        command.remove_prefix(std::min(end + 1, command.size()));
        const auto program = word.substr(word.rfind('/') + 1);
        if (program == "env" || word.find('=') != std::string_view::npos) continue;
        const bool isStarter =
            std::find(std::begin(starters), std::end(starters), program) != std::end(starters);
        return isStarter ? std::string() : std::string(program);
    }
    return {};
}

// "tr_TR.UTF-8@x" -> "tr_TR@x", "tr_TR", "tr@x", "tr"
void addLanguages(std::string_view locale, std::vector<std::string>& languages) {
    if (locale.empty() || locale == "C" || locale == "POSIX" || locale.substr(0, 2) == "C.") return;
    std::string_view modifier;
    if (const auto at = locale.find('@'); at != std::string_view::npos) {
        modifier = locale.substr(at);
        locale = locale.substr(0, at);
    }
    locale = locale.substr(0, locale.find('.'));
    const auto add = [&](std::string_view base) {
        if (!modifier.empty()) languages.push_back(std::string(base) + std::string(modifier));
        languages.emplace_back(base);
    };
    const auto country = locale.find('_');
    if (country != std::string_view::npos) add(locale);
    add(locale.substr(0, country));
}

std::string_view variable(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

}  // namespace

std::optional<DesktopEntry> DesktopEntry::parse(std::string id, std::string_view text,
                                                const std::vector<std::string>& languages) {
    DesktopEntry entry;
    entry.id = std::move(id);
    bool isApplication = false;
    bool isInEntry = false;  // not in the group of one of its actions
    std::size_t nameRank = languages.size() + 1;
    while (!text.empty()) {
        const auto end = std::min(text.find('\n'), text.size());
        const auto line = trimmed(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
        if (line.empty() || line[0] == '#') continue;
        if (line[0] == '[') {
            if (isInEntry) break;
            isInEntry = line == "[Desktop Entry]";
            continue;
        }
        const auto equals = line.find('=');
        if (!isInEntry || equals == std::string_view::npos) continue;
        const auto key = trimmed(line.substr(0, equals));
        const auto value = trimmed(line.substr(equals + 1));
        if (key == "Type") {
            isApplication = value == "Application";
        } else if (key == "Hidden") {
            entry.isDeleted = value == "true";
        } else if (key == "NoDisplay") {
            entry.isShown = value != "true";
        } else if (key == "StartupWMClass") {
            entry.startupWMClass = unescaped(value);
        } else if (key == "Exec") {
            entry.program = programOf(unescaped(value));
        } else if (key.substr(0, 4) == "Name") {
            auto rank = languages.size();
            if (key != "Name") {
                if (key.size() < 6 || key[4] != '[' || key.back() != ']') continue;
                const auto language = key.substr(5, key.size() - 6);
                rank = static_cast<std::size_t>(
                    std::find(languages.begin(), languages.end(), language) - languages.begin());
                if (rank == languages.size()) continue;
            }
            if (rank >= nameRank) continue;
            nameRank = rank;
            entry.name = unescaped(value);
        }
    }
    if (!entry.isDeleted && (!isApplication || entry.name.empty())) return std::nullopt;
    return entry;
}

std::vector<std::string> messageLanguages() {
    std::string_view locale;
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        if (!(locale = variable(name)).empty()) break;
    }
    std::vector<std::string> ofLocale;
    addLanguages(locale, ofLocale);
    if (ofLocale.empty()) return {};
    // As gettext has it, the list goes before the locale, unless that is the C locale.
    std::vector<std::string> languages;
    for (auto list = variable("LANGUAGE"); !list.empty();) {
        const auto end = std::min(list.find(':'), list.size());
        addLanguages(list.substr(0, end), languages);
        list.remove_prefix(std::min(end + 1, list.size()));
    }
    languages.insert(languages.end(), ofLocale.begin(), ofLocale.end());
    return languages;
}

}  // namespace orvel
