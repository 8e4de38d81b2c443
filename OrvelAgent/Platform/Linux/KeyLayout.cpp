#include "OrvelAgent/Platform/Linux/KeyLayout.h"

#include <xkbcommon/xkbcommon-keysyms.h>
#include <xkbcommon/xkbcommon.h>

#include <algorithm>
#include <cstring>

namespace orvel {

namespace {

struct ReleaseState {
    void operator()(xkb_state* state) const { xkb_state_unref(state); }
};
using KeyState = std::unique_ptr<xkb_state, ReleaseState>;

constexpr xkb_keysym_t symbolOf(ModifierRole role) {
    switch (role) {
        case ModifierRole::shift:
            return XKB_KEY_Shift_L;
        case ModifierRole::control:
            return XKB_KEY_Control_L;
        case ModifierRole::alternate:
            return XKB_KEY_Alt_L;
        case ModifierRole::super:
            return XKB_KEY_Super_L;
        case ModifierRole::level3:
            return XKB_KEY_ISO_Level3_Shift;
    }
    return XKB_KEY_NoSymbol;
}

// In the first layout.
xkb_keysym_t symbolOf(xkb_keymap* keymap, xkb_keycode_t code, xkb_level_index_t level = 0) {
    const xkb_keysym_t* symbols = nullptr;
    if (xkb_keymap_num_layouts_for_key(keymap, code) == 0) return XKB_KEY_NoSymbol;
    return xkb_keymap_key_get_syms_by_level(keymap, code, 0, level, &symbols) > 0
               ? symbols[0]
               : XKB_KEY_NoSymbol;
}

bool meansNothing(xkb_keymap* keymap, xkb_keycode_t code) {
    for (xkb_layout_index_t layout = 0; layout < xkb_keymap_num_layouts_for_key(keymap, code);
         ++layout) {
        const auto levels = xkb_keymap_num_levels_for_key(keymap, code, layout);
        for (xkb_level_index_t level = 0; level < levels; ++level) {
            const xkb_keysym_t* symbols = nullptr;
            if (xkb_keymap_key_get_syms_by_level(keymap, code, layout, level, &symbols) > 0)
                return false;
        }
    }
    return true;
}

bool isKeypad(xkb_keymap* keymap, xkb_keycode_t code) {
    const char* name = xkb_keymap_key_get_name(keymap, code);
    const auto symbol = symbolOf(keymap, code);
    return (name && std::strncmp(name, "KP", 2) == 0) ||
           (symbol >= XKB_KEY_KP_Space && symbol <= XKB_KEY_KP_Equal);
}

template <class Visit>
void eachCode(xkb_keymap* keymap, Visit visit) {
    const auto last = std::min<xkb_keycode_t>(xkb_keymap_max_keycode(keymap), 255);
    for (auto code = xkb_keymap_min_keycode(keymap); code <= last; ++code)
        visit(static_cast<KeyCodeX>(code));
}

}  // namespace

void KeyLayout::Release::operator()(xkb_keymap* released) const {
    xkb_keymap_unref(released);
}

KeyLayout::KeyLayout(xkb_keymap* owned, const std::vector<KeyAssignment>& lent) : keymap(owned) {
    for (const auto& assignment : lent)
        isSpare[assignment.code] = assignmentOf(assignment.code) == assignment;
    for (const auto role : {ModifierRole::shift, ModifierRole::control, ModifierRole::alternate,
                            ModifierRole::super, ModifierRole::level3}) {
        eachCode(owned, [&](KeyCodeX code) {
            if (modifiers.contains(role) || symbolOf(owned, code) != symbolOf(role)) return;
            if (const ModifierMask mask = maskOf(code)) modifiers[role] = {code, mask};
        });
    }
    eachCode(owned, [&](KeyCodeX code) {
        isSpare[code] = isSpare[code] || meansNothing(owned, code);
        if (isSpare[code]) spare.push_back(code);
    });
}

std::optional<KeyCodeX> KeyLayout::named(const char* name) const {
    const auto code = xkb_keymap_key_by_name(keymap.get(), name);
    if (code == XKB_KEYCODE_INVALID || code > 255) return std::nullopt;
    return static_cast<KeyCodeX>(code);
}

std::optional<ModifierKey> KeyLayout::modifier(ModifierRole role) const {
    const auto found = modifiers.find(role);
    return found == modifiers.end() ? std::nullopt : std::optional(found->second);
}

ModifierMask KeyLayout::maskOf(KeyCodeX code) const {
    const KeyState state(xkb_state_new(keymap.get()));
    xkb_state_update_key(state.get(), code, XKB_KEY_DOWN);
    if (xkb_state_serialize_mods(state.get(), XKB_STATE_MODS_LOCKED)) return 0;
    return static_cast<ModifierMask>(
        xkb_state_serialize_mods(state.get(), XKB_STATE_MODS_DEPRESSED));
}

KeyAssignment KeyLayout::assignmentOf(KeyCodeX code) const {
    const auto first = symbolOf(keymap.get(), code);
    // A key with one level has the same keysym with Shift.
    const bool hasTwo = xkb_keymap_num_levels_for_key(keymap.get(), code, 0) > 1;
    return {code, first, hasTwo ? symbolOf(keymap.get(), code, 1) : first};
}

std::optional<KeyLayout::Stroke> KeyLayout::strokeFor(char32_t character,
                                                      const State& state) const {
    auto strokes = known.find(state);
    if (strokes == known.end()) {
        if (known.size() > 32) known.clear();
        strokes = known.emplace(state, strokesIn(state)).first;
    }
    const auto found = strokes->second.find(character);
    return found == strokes->second.end() ? std::nullopt : std::optional(found->second);
}

KeyLayout::Strokes KeyLayout::strokesIn(const State& state) const {
    Strokes strokes;
    const KeyState simulated(xkb_state_new(keymap.get()));
    const auto shift = modifier(ModifierRole::shift), level3 = modifier(ModifierRole::level3);
    const auto addStrokes = [&](ModifierMask held, bool withShift, bool withLevel3) {
        xkb_state_update_mask(simulated.get(), held, 0, state.locked, 0, 0, state.group);
        eachCode(keymap.get(), [&](KeyCodeX code) {
            const auto character = xkb_state_key_get_utf32(simulated.get(), code);
            if (character < ' ' || (character >= 0x7F && character < 0xA0)) return;
            if (isSpare[code] || isKeypad(keymap.get(), code)) return;
            strokes.try_emplace(character, Stroke{code, withShift, withLevel3});
        });
    };
    // The fewer modifiers the better: the first way that is found counts.
    for (const bool withLevel3 : {false, true}) {
        if (withLevel3 && (!level3 || (state.held & level3->mask))) continue;
        for (const bool withShift : {false, true}) {
            if (withShift && (!shift || (state.held & shift->mask))) continue;
            const ModifierMask held =
                state.held | (withShift ? shift->mask : 0) | (withLevel3 ? level3->mask : 0);
            addStrokes(held, withShift, withLevel3);
        }
    }
    return strokes;
}

}  // namespace orvel
