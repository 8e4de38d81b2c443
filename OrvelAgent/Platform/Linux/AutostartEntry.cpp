#include "OrvelAgent/Platform/Linux/AutostartEntry.h"

#include <unistd.h>

#include <algorithm>

namespace orvel {

namespace {

constexpr const char* group = G_KEY_FILE_DESKTOP_GROUP;
// Of GNOME; other sessions write it as well.
constexpr const char* enabledKey = "X-GNOME-Autostart-enabled";

// A session is begun for other things than our panel.
constexpr const char* startOption = " --at-login";

using Text = std::unique_ptr<char, decltype(&g_free)>;

bool isExecutable(const std::string& program) {
    if (program.empty()) return false;
    if (program.find('/') != std::string::npos) return access(program.c_str(), X_OK) == 0;
    return Text(g_find_program_in_path(program.c_str()), g_free) != nullptr;
}

// What an Exec line runs; empty when it cannot be read.
std::string programOf(const std::string& command) {
    int count = 0;
    char** parsed = nullptr;
    if (!g_shell_parse_argv(command.c_str(), &count, &parsed, nullptr)) return {};
    const std::unique_ptr<char*, decltype(&g_strfreev)> words(parsed, g_strfreev);
    std::string program = parsed[0];
    for (std::size_t at = 0; (at = program.find("%%", at)) != std::string::npos; ++at)
        program.erase(at, 1);
    return program;
}

}  // namespace

std::string quotedForExec(std::string_view argument) {
    constexpr std::string_view reserved = " \t\n\"'\\><~|&;$*?#()`";
    std::string result;
    for (const char c : argument) {
        if (c == '"' || c == '`' || c == '$' || c == '\\') result += '\\';
        if (c == '%') result += '%';
        result += c;
    }
    const bool isQuoted = argument.find_first_of(reserved) != std::string_view::npos;
    return isQuoted ? '"' + result + '"' : result;
}

std::optional<AutostartEntry> AutostartEntry::parse(std::string_view text) {
    AutostartEntry entry;
    constexpr auto flags =
        static_cast<GKeyFileFlags>(G_KEY_FILE_KEEP_COMMENTS | G_KEY_FILE_KEEP_TRANSLATIONS);
    if (!g_key_file_load_from_data(entry.file.get(), text.data(), text.size(), flags, nullptr) ||
        !g_key_file_has_group(entry.file.get(), group)) {
        return std::nullopt;
    }
    return entry;
}

AutostartEntry AutostartEntry::make(const std::string& program, const std::string& name) {
    AutostartEntry entry;
    entry.set(G_KEY_FILE_DESKTOP_KEY_TYPE, G_KEY_FILE_DESKTOP_TYPE_APPLICATION);
    entry.set(G_KEY_FILE_DESKTOP_KEY_NAME, name);
    entry.set(G_KEY_FILE_DESKTOP_KEY_EXEC, quotedForExec(program) + startOption);
    entry.set(G_KEY_FILE_DESKTOP_KEY_TERMINAL, "false");
    entry.set(enabledKey, "true");
    return entry;
}

bool AutostartEntry::starts(std::string_view desktop) const {
    return valueOf(G_KEY_FILE_DESKTOP_KEY_TYPE) == G_KEY_FILE_DESKTOP_TYPE_APPLICATION &&
           !is(G_KEY_FILE_DESKTOP_KEY_HIDDEN, true) && !is(enabledKey, false) && isFor(desktop) &&
           hasProgram();
}

void AutostartEntry::switchOn(const std::string& program, std::string_view desktop) {
    set(G_KEY_FILE_DESKTOP_KEY_TYPE, G_KEY_FILE_DESKTOP_TYPE_APPLICATION);
    g_key_file_remove_key(file.get(), group, G_KEY_FILE_DESKTOP_KEY_HIDDEN, nullptr);
    if (is(enabledKey, false)) set(enabledKey, "true");
    if (!isFor(desktop)) {
        for (const char* key :
             {G_KEY_FILE_DESKTOP_KEY_ONLY_SHOW_IN, G_KEY_FILE_DESKTOP_KEY_NOT_SHOW_IN})
            g_key_file_remove_key(file.get(), group, key, nullptr);
    }
    if (!hasProgram()) {
        set(G_KEY_FILE_DESKTOP_KEY_EXEC, quotedForExec(program) + startOption);
        g_key_file_remove_key(file.get(), group, G_KEY_FILE_DESKTOP_KEY_TRY_EXEC, nullptr);
    }
}

void AutostartEntry::switchOff() {
    set(G_KEY_FILE_DESKTOP_KEY_HIDDEN, "true");
}

std::string AutostartEntry::text() const {
    gsize length = 0;
    const Text data(g_key_file_to_data(file.get(), &length, nullptr), g_free);
    return {data.get(), length};
}

bool AutostartEntry::isFor(std::string_view desktop) const {
    if (desktop.empty()) return true;
    const auto has = [&](const char* key) {
        return g_key_file_has_key(file.get(), group, key, nullptr);
    };
    if (has(G_KEY_FILE_DESKTOP_KEY_ONLY_SHOW_IN)) {
        return lists(G_KEY_FILE_DESKTOP_KEY_ONLY_SHOW_IN, desktop);
    }
    return !lists(G_KEY_FILE_DESKTOP_KEY_NOT_SHOW_IN, desktop);
}

bool AutostartEntry::lists(const char* key, std::string_view desktop) const {
    const std::unique_ptr<char*, decltype(&g_strfreev)> names(
        g_key_file_get_string_list(file.get(), group, key, nullptr, nullptr), g_strfreev);
    if (!names) return false;
    while (!desktop.empty()) {
        const std::string one(desktop.substr(0, desktop.find(':')));
        if (g_strv_contains(names.get(), one.c_str())) return true;
        desktop.remove_prefix(std::min(one.size() + 1, desktop.size()));
    }
    return false;
}

bool AutostartEntry::hasProgram() const {
    const std::string needed = valueOf(G_KEY_FILE_DESKTOP_KEY_TRY_EXEC);
    return (needed.empty() || isExecutable(needed)) &&
           isExecutable(programOf(valueOf(G_KEY_FILE_DESKTOP_KEY_EXEC)));
}

std::string AutostartEntry::valueOf(const char* key) const {
    const Text value(g_key_file_get_string(file.get(), group, key, nullptr), g_free);
    return value ? value.get() : "";
}

bool AutostartEntry::is(const char* key, bool expected) const {
    GErrorSlot error;
    const bool value = g_key_file_get_boolean(file.get(), group, key, error.out());
    return !error.isSet() && value == expected;
}

void AutostartEntry::set(const char* key, const std::string& value) {
    g_key_file_set_string(file.get(), group, key, value.c_str());
}

}  // namespace orvel
