#include "OrvelAgent/Platform/Linux/TextTyper.h"

#include <xkbcommon/xkbcommon-keysyms.h>
#include <xkbcommon/xkbcommon.h>

#include <algorithm>
#include <utility>

namespace orvel {

namespace {

// Characters typed between two questions to the server, which keeps us from outrunning it.
constexpr std::size_t atOnce = 32;

// Such portions in one call.
constexpr int mostPortions = 8;

// How far ahead characters without a key are looked for.
constexpr std::size_t lookAhead = 512;

// How long to wait before keys are lent, for text that is on its way in pieces: one change for all
// of it. Each is dear, and delays the text anyhow.
constexpr Duration gathering = std::chrono::milliseconds(2);

// How long a key that was typed with keeps its character when another one needs it: for a program
// that does not tell whether it has read it, and the most for one that does.
constexpr Duration restUnasked = std::chrono::milliseconds(150),
                   restAsked = std::chrono::seconds(3);

void append(std::vector<KeyAction>& to, const std::vector<KeyAction>& actions) {
    to.insert(to.end(), actions.begin(), actions.end());
}

}  // namespace

TextTyper::TextTyper(X11Keyboard& ourKeyboard, const HeldKeys& heldKeys, ProgramPing& programPing,
                     std::function<void()> write)
    : keyboard(ourKeyboard),
      held(heldKeys),
      ping(programPing),
      writeDown(std::move(write)),
      rest(restUnasked) {}

bool TextTyper::isTypeable(char32_t character) const {
    const bool isControl = character < ' ' || (character >= 0x7F && character < 0xA0);
    return !isControl || character == '\t';
}

void TextTyper::add(std::u16string_view units) {
    for (const char32_t character : joiner.join(units)) {
        if (isTypeable(character)) pending.push_back(character);
    }
    isNew = isNew || !units.empty();
}

std::optional<MonotonicTime> TextTyper::type(MonotonicTime now) {
    for (int portions = 0; !pending.empty(); ++portions) {
        if (portions == mostPortions) return now;
        followLayout();
        const auto around = context();
        // Before the first key: some programs (Xlib's) read the table when they get their first
        // one, and overlook a change at that moment.
        if (isNew) {
            if (const auto until = gatherText(around, now)) return until;
            isNew = false;
            if (const auto ready = lendKeys(around, now).ready) return ready;
        }
        std::vector<KeyAction> actions = around.before;
        std::size_t count = 0;
        for (; count < std::min(pending.size(), atOnce); ++count) {
            const auto keys = actionsFor(pending[count], around, now);
            if (!keys) break;
            append(actions, *keys);
        }
        if (count == 0) {
            if (const auto* lent = spare.find(pending.front())) return lent->readyAt;
            const auto lending = lendKeys(around, now);
            return lending.ready ? lending.ready : waitForProgram(around, now);
        }
        append(actions, around.after);
        if (around.unlocked) keyboard.lock(around.unlocked, false);
        keyboard.send(actions);
        if (around.unlocked) keyboard.lock(around.unlocked, true);
        pending.erase(pending.begin(), pending.begin() + static_cast<std::ptrdiff_t>(count));
    }
    return std::nullopt;
}

void TextTyper::followLayout() {
    const auto& layout = keyboard.layout();
    if (keyboard.layoutNumber() == layoutNumber) return;
    layoutNumber = keyboard.layoutNumber();
    // A new layout takes back what was lent.
    for (const KeyCodeX code : spare.lent()) {
        if (layout.assignmentOf(code) != assignmentOf(code)) spare.forget(code);
    }
    spare.setCodes(layout.spareCodes());
}

TextTyper::Context TextTyper::context() {
    const auto& layout = keyboard.layout();
    Context around;
    around.state = keyboard.state();
    const auto letGo = [&](KeyCodeX code) {
        around.before.push_back({code, false});
        around.state.held &= static_cast<ModifierMask>(~layout.maskOf(code));
    };
    for (const KeyCodeX code : held.codes()) {
        if (layout.maskOf(code) == 0) continue;
        letGo(code);
        around.after.push_back({code, true});
    }
    if (around.state.held) {
        for (const KeyCodeX code : keyboard.keysDown()) {
            if (layout.maskOf(code) && !held.holds(code)) letGo(code);
        }
    }
    around.unlocked = around.state.locked & lockModifier;
    for (const auto role : {ModifierRole::shift, ModifierRole::control, ModifierRole::alternate,
                            ModifierRole::super}) {
        const auto key = layout.modifier(role);
        if (key) around.unlocked |= around.state.locked & key->mask;
    }
    around.state.locked &= static_cast<ModifierMask>(~around.unlocked);
    return around;
}

std::optional<std::vector<KeyAction>> TextTyper::actionsFor(char32_t character,
                                                            const Context& around,
                                                            MonotonicTime now) {
    const auto& layout = keyboard.layout();
    KeyLayout::Stroke stroke;
    if (character == '\t') {
        const auto tab = layout.named("TAB");
        if (!tab) return std::vector<KeyAction>{};
        stroke.code = *tab;
    } else if (const auto known = layout.strokeFor(character, around.state)) {
        stroke = *known;
    } else if (const auto* lent = spare.find(character)) {
        if (now < lent->readyAt) return std::nullopt;
        stroke = {lent->code, lent->withShift, false};
        spare.markUsed(character, now);
    } else if (spare.size() == 0 || xkb_utf32_to_keysym(character) == XKB_KEY_NoSymbol) {
        return std::vector<KeyAction>{};
    } else {
        return std::nullopt;
    }
    std::vector<KeyAction> actions{{stroke.code, true}, {stroke.code, false}};
    // A key that the phone holds has to come up first, or it would not go down.
    if (held.holds(stroke.code)) actions = {{stroke.code, false}, {stroke.code, true}};
    for (const auto& [wanted, role] : {std::pair(stroke.withLevel3, ModifierRole::level3),
                                       std::pair(stroke.withShift, ModifierRole::shift)}) {
        const auto key = wanted ? layout.modifier(role) : std::nullopt;
        if (!key) continue;
        actions.insert(actions.begin(), {key->code, true});
        actions.push_back({key->code, false});
    }
    return actions;
}

std::vector<char32_t> TextTyper::wantedCharacters(const Context& around) {
    std::vector<char32_t> wanted;
    for (std::size_t i = 0; i < std::min(pending.size(), lookAhead); ++i) {
        const char32_t character = pending[i];
        if (wanted.size() == spare.size()) break;
        if (character == '\t' || keyboard.layout().strokeFor(character, around.state) ||
            xkb_utf32_to_keysym(character) == XKB_KEY_NoSymbol ||
            std::find(wanted.begin(), wanted.end(), character) != wanted.end())
            continue;
        wanted.push_back(character);
    }
    return wanted;
}

TextTyper::Lending TextTyper::lendKeys(const Context& around, MonotonicTime now) {
    const auto plan = spare.lend(wantedCharacters(around), now, rest);
    if (plan.changed.empty()) return {std::nullopt, plan.waitUntil};
    std::vector<KeyAssignment> assignments;
    for (const KeyCodeX code : plan.changed)
        assignments.push_back(assignmentOf(code));
    writeDown();
    keyboard.assign(assignments);
    return {now + SpareKeys::grace, std::nullopt};
}

std::optional<MonotonicTime> TextTyper::gatherText(const Context& around, MonotonicTime now) {
    const auto wanted = wantedCharacters(around);
    const bool areAllLent =
        std::all_of(wanted.begin(), wanted.end(), [&](char32_t each) { return spare.find(each); });
    if (!areAllLent && !gatheringUntil) gatheringUntil = now + gathering;
    if (areAllLent || now >= *gatheringUntil) gatheringUntil.reset();
    return gatheringUntil;
}

// All keys are in use. What was typed before this question is read before it is answered.
std::optional<MonotonicTime> TextTyper::waitForProgram(const Context& around, MonotonicTime now) {
    rest = ping.send(now) ? restAsked : restUnasked;
    const auto lending = lendKeys(around, now);
    return lending.ready ? lending.ready : lending.waitUntil;
}

void TextTyper::markRead(MonotonicTime until) {
    spare.markRead(until);
}

std::vector<KeyAssignment> TextTyper::lent() const {
    std::vector<KeyAssignment> all;
    for (const KeyCodeX code : spare.lent())
        all.push_back(assignmentOf(code));
    return all;
}

KeyAssignment TextTyper::assignmentOf(KeyCodeX code) const {
    const auto [plain, shifted] = spare.charactersOf(code);
    return {code, xkb_utf32_to_keysym(plain), xkb_utf32_to_keysym(shifted)};
}

void TextTyper::giveBack() {
    followLayout();
    std::vector<KeyAssignment> assignments;
    for (const KeyCodeX code : spare.lent())
        assignments.push_back({code});
    keyboard.assign(assignments);
    spare.forgetAll();
}

}  // namespace orvel
