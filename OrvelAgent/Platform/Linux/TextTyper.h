#pragma once

#include <deque>
#include <functional>
#include <optional>
#include <string_view>
#include <vector>

#include "OrvelAgent/Platform/Linux/HeldKeys.h"
#include "OrvelAgent/Platform/Linux/ProgramPing.h"
#include "OrvelAgent/Platform/Linux/SpareKeys.h"
#include "OrvelAgent/Platform/Linux/X11Keyboard.h"
#include "OrvelKit/Base/Clock.h"
#include "OrvelKit/Base/Unicode.h"

namespace orvel {

// Types text, whatever the layout: with the keys that have a character, Shift and AltGr added; the
// characters that no key has are lent spare keys, many in one change, and keep them for a while, as
// each change makes every program read the keyboard's table again.
//
// What is typed is the text, whatever else is pressed: Caps Lock is unlocked meanwhile; modifiers
// that we hold are let go of and pressed again; those of the user are let go of, and count as
// released from then on: nobody can press them again for him. Of control characters there is Tab;
// the others are left out, and so are characters for which there is no key at all.
//
// Belongs to one thread; waits for the server and throws X11Failure.
class TextTyper {
public:
    // All outlive this. `writeDown` is called when lent() has changed and before the server knows:
    // whoever comes after a crash has to find what was lent.
    TextTyper(X11Keyboard& keyboard, const HeldKeys& held, ProgramPing& ping,
              std::function<void()> writeDown);

    // More text for type(). A surrogate pair may be cut between two calls.
    void add(std::u16string_view units);
    // What follows does not continue the text so far.
    void endText() { joiner.reset(); }
    // The program has read what was typed until then: type() may have waited for that.
    void markRead(MonotonicTime until);
    // Types on. What is returned: when to call again, which may be at once; nullopt: all is typed.
    // The caller flushes.
    std::optional<MonotonicTime> type(MonotonicTime now);

    std::vector<KeyAssignment> lent() const;
    // nullopt: nothing is lent.
    std::optional<MonotonicTime> lastUse() const { return spare.lastUse(); }
    // Gives the keys back.
    void giveBack();

private:
    struct Context {
        KeyLayout::State state;         // while typing
        std::vector<KeyAction> before;  // what makes it so
        std::vector<KeyAction> after;   // what puts it back
        ModifierMask unlocked = 0;      // meanwhile
    };
    Context context();
    // The keys for one character; nullopt: it has none yet.
    std::optional<std::vector<KeyAction>> actionsFor(char32_t character, const Context& context,
                                                     MonotonicTime now);
    // Those to come that no key of the layout has, distinct, as many as there is room for.
    std::vector<char32_t> wantedCharacters(const Context& context);
    // Until when to wait for more text before keys are lent; nullopt: no longer.
    std::optional<MonotonicTime> gatherText(const Context& context, MonotonicTime now);
    // Either: characters were lent keys, which can be typed from then on; or none could be, and
    // until when to wait. Neither: none of those to come needs one.
    struct Lending {
        std::optional<MonotonicTime> ready, waitUntil;
    };
    Lending lendKeys(const Context& context, MonotonicTime now);
    std::optional<MonotonicTime> waitForProgram(const Context& context, MonotonicTime now);
    void followLayout();
    bool isTypeable(char32_t character) const;
    KeyAssignment assignmentOf(KeyCodeX code) const;

    X11Keyboard& keyboard;
    const HeldKeys& held;
    ProgramPing& ping;
    const std::function<void()> writeDown;
    SpareKeys spare;
    Duration rest;  // how long a program may take that is asked, or cannot be
    std::uint32_t layoutNumber = 0;
    Utf16Joiner joiner;
    std::deque<char32_t> pending;
    bool isNew = false;  // text has come that no keys were lent for
    std::optional<MonotonicTime> gatheringUntil;
};

}  // namespace orvel
