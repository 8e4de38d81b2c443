#include "OrvelAgent/Desk/Characters.h"

#include <unicode/ubrk.h>
#include <unicode/utext.h>

#include <algorithm>
#include <memory>

#include "OrvelKit/Base/Unicode.h"

namespace orvel {

namespace {

bool hasMoreCodePointsThan(std::size_t limit, std::string_view text) {
    for (std::size_t count = 0; !text.empty(); ++count) {
        if (text.size() + count <= limit) return false;
        if (count == limit) return true;
        text.remove_prefix(std::max<std::size_t>(characterLength(text), 1));
    }
    return false;
}

}  // namespace

bool hasMoreCharactersThan(std::size_t limit, std::string_view text) {
    if (!hasMoreCodePointsThan(limit, text)) return false;
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<UText, UText* (*)(UText*)> view(
        utext_openUTF8(nullptr, text.data(), static_cast<std::int64_t>(text.size()), &status),
        utext_close);
    const std::unique_ptr<UBreakIterator, void (*)(UBreakIterator*)> breaks(
        ubrk_open(UBRK_CHARACTER, "", nullptr, 0, &status), ubrk_close);
    if (U_SUCCESS(status)) ubrk_setUText(breaks.get(), view.get(), &status);
    if (U_FAILURE(status)) return true;  // the library has no data here: code points count then
    for (std::size_t count = 0; count <= limit; ++count) {
        if (ubrk_next(breaks.get()) == UBRK_DONE) return false;
    }
    return true;
}

}  // namespace orvel
