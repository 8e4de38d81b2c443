#include "OrvelAgent/Platform/Linux/HeldKeys.h"

#include <gtest/gtest.h>

#include <sstream>

namespace orvel {
namespace {

// The keyboard of these tests: shift is key 50, mask 1; control is 37, mask 4. The phone's keys
// have the numbers of the X keys that they stand for.
constexpr ModifierKey shift{50, 1}, control{37, 4};

std::string text(const std::vector<KeyAction>& actions) {
    std::string line;
    for (const auto& [code, down] : actions)
        line += (line.empty() ? "" : " ") + std::string(down ? "+" : "-") + std::to_string(code);
    return line;
}

// Steps such as "+38 S" (key 38 with Shift), "+38" (with none), "+38 ?" (as they are), "-38",
// "all"; "user S": from here on the user holds Shift.
std::string played(const std::string& steps) {
    HeldKeys keys;
    std::istringstream input(steps);
    std::string all, step;
    ModifierMask user = 0;
    while (std::getline(input, step, ';')) {
        std::istringstream words(step);
        std::string what, modifiers;
        words >> what >> modifiers;
        std::string line;
        if (what == "user") {
            user = modifiers == "S" ? 1 : 4;
            continue;
        }
        if (what == "all") {
            line = text(keys.releaseAll());
        } else if (what[0] == '-') {
            line = text(keys.release(static_cast<std::uint16_t>(std::stoi(what.substr(1)))));
        } else {
            const int code = std::stoi(what.substr(1));
            std::optional<std::vector<ModifierKey>> wanted;
            if (modifiers != "?") wanted.emplace();
            if (modifiers.find('S') != modifiers.npos) wanted->push_back(shift);
            if (modifiers.find('C') != modifiers.npos) wanted->push_back(control);
            ModifierMask down = user;
            for (const auto held : keys.codes())
                down |= held == 50 ? 1 : held == 37 ? 4 : 0;
            line = text(keys.press(static_cast<std::uint16_t>(code), static_cast<KeyCodeX>(code),
                                   wanted, down,
                                   static_cast<ModifierMask>(code == 50   ? 1
                                                             : code == 37 ? 4
                                                                          : 0)));
        }
        all += (all.empty() ? "" : "; ") + line;
    }
    return all;
}

TEST(HeldKeys, findsTheModifiersThatEachMessageNames) {
    const struct {
        const char* name;
        const char* steps;
        const char* want;
    } rows[] = {
        {"a plain key", "+38;-38", "+38; -38"},
        {"modifiers before it, held until its release", "+38 SC;-38", "+50 +37 +38; -38 -37 -50"},
        {"two keys share one, the last one releases it", "+38 S;+39 S;-38;-39",
         "+50 +38; +39; -38; -39 -50"},
        {"a key without it in between is typed without", "+38 S;+39;-38;-39",
         "+50 +38; -50 +39; -38; -39"},
        {"as they are: nothing is touched", "+38 S;+36 ?;-36;-38", "+50 +38; +36; -36; -38 -50"},
        {"the user's own is left alone", "user S;+38 S;-38", "+38; -38"},
        {"but another one is added", "user S;+38 SC;-38", "+37 +38; -38 -37"},
        {"a modifier sent as a key is no modifier of itself", "+50 S;+38 S;-38;-50",
         "+50; +38; -38; -50"},
        {"a modifier sent as a key stays for a key that does not name it", "+50 S;+38;-38;-50",
         "+50; +38; -38; -50"},
        {"a repeated press is another press", "+38 S;+38 S;-38", "+50 +38; -38 +38; -38 -50"},
        {"with other modifiers", "+38 S;+38 C;-38", "+50 +38; -38 -50 +37 +38; -38 -37"},
        {"a release without a press", "+38;-39;-38;-38", "+38; ; -38; "},
        {"all at once", "+38 S;+39 C;+37 C;all", "+50 +38; -50 +37 +39; ; -38 -39 -37"},
        {"nothing is left after that", "+38 S;all;-38;all", "+50 +38; -38 -50; ; "},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(played(row.steps), row.want);
    }
}

}  // namespace
}  // namespace orvel
