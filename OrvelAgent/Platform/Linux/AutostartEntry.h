#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "OrvelAgent/Platform/Linux/GLib.h"

namespace orvel {

struct GKeyFileUnref {
    void operator()(GKeyFile* file) const { g_key_file_unref(file); }
};

// A file that has a desktop session start a program (Desktop Entry Specification 1.5, Desktop
// Application Autostart Specification 0.5). Changes leave what they are not about as it was, with
// its comments.
class AutostartEntry {
public:
    // nullopt: it is no desktop entry.
    static std::optional<AutostartEntry> parse(std::string_view text);
    // Starts the program, an absolute path in UTF-8 or a name to look for, under a name for people.
    static AutostartEntry make(const std::string& program, const std::string& name);

    // Whether a session of `desktop` (the colon-separated names of XDG_CURRENT_DESKTOP) starts it:
    // nobody has switched it off, and there is such a program. Empty: any desktop may be meant.
    bool starts(std::string_view desktop) const;
    void switchOn(const std::string& program, std::string_view desktop);
    void switchOff();

    std::string text() const;

private:
    AutostartEntry() : file(g_key_file_new()) {}
    bool isFor(std::string_view desktop) const;
    bool lists(const char* key, std::string_view desktop) const;
    bool hasProgram() const;
    std::string valueOf(const char* key) const;  // empty: it has none
    bool is(const char* key, bool expected) const;
    void set(const char* key, const std::string& value);

    std::unique_ptr<GKeyFile, GKeyFileUnref> file;
};

// One argument of an Exec line, quoted where it has to be.
std::string quotedForExec(std::string_view argument);

}  // namespace orvel
