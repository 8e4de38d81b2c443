#include "OrvelAgent/Platform/Linux/AccessibleState.h"

namespace orvel {

TextFocus::Element AccessibleState::element() const {
    // GTK 4 knows no "enabled".
    if (!has(enabled) && !has(sensitive)) return {};
    // A terminal takes text without saying that it is editable.
    if (role == terminal) return {"AXTextArea", true};
    // Qt calls read-only fields editable too, and not its combo and spin boxes that are.
    const bool takesText = has(editable) || (role == comboBox && hasEditablePart) ||
                           (role == spinButton && hasEditableText);
    if (!takesText || has(readOnly)) return {};
    if (isSearch && !has(multiLine)) return {"AXSearchField", hasText};
    switch (role) {
        case passwordText:
            return {"AXTextField", hasText};
        case text:
        case entry:
        case editBar:
            return {has(multiLine) ? "AXTextArea" : "AXTextField", hasText};
        case documentFrame:
        case documentText:
        case documentEmail:
            return {"AXTextArea", hasText};
        case comboBox:
            return {"AXComboBox", hasText};
        default:
            return {std::nullopt, hasText};
    }
}

}  // namespace orvel
