#include "OrvelAgent/App/PhoneName.h"

#include <QString>
#include <algorithm>

namespace orvel {

namespace {

// Directional marks, embeddings, overrides and isolates (Unicode Standard Annex 9).
bool turnsText(char32_t c) {
    return c == 0x061C || c == 0x200E || c == 0x200F || (c >= 0x202A && c <= 0x202E) ||
           (c >= 0x2066 && c <= 0x2069);
}

bool endsLine(char32_t c) {
    return c < 0x20 || (c >= 0x7F && c < 0xA0) || c == 0x2028 || c == 0x2029;
}

}  // namespace

std::string phoneNameInText(std::string_view name) {
    // Some more than can be shown, so that an immense name costs nothing.
    const auto bytes = static_cast<qsizetype>(std::min(name.size(), std::size_t{8192}));
    std::u32string text;
    for (const char32_t c : QString::fromUtf8(name.data(), bytes).toStdU32String()) {
        if (!turnsText(c)) text += endsLine(c) ? U' ' : c;
    }
    if (text.size() > maxNameInText) {
        text.resize(maxNameInText - 1);
        text += U'…';
    }
    return QString::fromStdU32String(text).trimmed().toStdString();
}

}  // namespace orvel
