#pragma once

#include <xcb/xcb.h>

#include "OrvelAgent/Platform/Linux/X11Client.h"

namespace orvel {

// The names that programs use to exchange a selection (ICCCM, section 2), for text and the
// clipboard. STRING is predefined: XCB_ATOM_STRING.
struct SelectionAtoms {
    explicit SelectionAtoms(const X11Connection& x11) {
        const auto atoms =
            internAtoms(x11, {"CLIPBOARD", "CLIPBOARD_MANAGER", "TARGETS", "MULTIPLE", "ATOM_PAIR",
                              "TIMESTAMP", "INCR", "SAVE_TARGETS", "NULL", "UTF8_STRING", "TEXT",
                              "COMPOUND_TEXT", "text/plain", "text/plain;charset=utf-8",
                              "text/plain;charset=UTF-8", "ORVEL_SELECTION", "ORVEL_TIME"});
        auto next = atoms.begin();
        for (xcb_atom_t* atom :
             {&clipboard, &clipboardManager, &targets, &multiple, &atomPair, &timestamp, &incr,
              &saveTargets, &null, &utf8String, &text, &compoundText, &textPlain, &textPlainUtf8,
              &textPlainUTF8, &transfer, &time}) {
            *atom = *next++;
        }
    }

    xcb_atom_t clipboard, clipboardManager;
    xcb_atom_t targets, multiple, atomPair, timestamp, incr, saveTargets, null;
    xcb_atom_t utf8String, text, compoundText, textPlain, textPlainUtf8, textPlainUTF8;
    xcb_atom_t transfer, time;  // properties of our own windows
};

}  // namespace orvel
