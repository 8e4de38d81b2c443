#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvel {

// What an application's file says about it (Desktop Entry Specification 1.5).
struct DesktopEntry {
    std::string id;    // the file's name without ".desktop", such as "org.gnome.TextEditor"
    std::string name;  // in the user's language
    std::string startupWMClass;  // as its windows call themselves; empty: it does not say
    std::string program;         // that it starts, without a folder; empty: no telling one
    bool isShown = true;         // in menus
    bool isDeleted = false;      // what other folders have under this id counts as deleted too

    // nullopt: it is no application. `languages` as from messageLanguages().
    static std::optional<DesktopEntry> parse(std::string id, std::string_view text,
                                             const std::vector<std::string>& languages);
};

// The user's languages for texts, as such files write them, best first: "tr_TR", "tr". From the
// environment (LANGUAGE, LC_ALL, LC_MESSAGES, LANG).
std::vector<std::string> messageLanguages();

}  // namespace orvel
