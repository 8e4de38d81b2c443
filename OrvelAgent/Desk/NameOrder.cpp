#include "OrvelAgent/Desk/NameOrder.h"

#include <unicode/ucol.h>
#include <unicode/uloc.h>

#include <cstdio>

#include "OrvelKit/Base/Unicode.h"

namespace orvel {

// Without the library's data, `handle` is null and names stand in the order of their bytes.
struct NameOrder::Collator {
    explicit Collator(const std::string& locale) {
        std::string name = locale.empty() ? uloc_getDefault() : locale;
        // What an environment without a language becomes. Its own order would be that of the
        // bytes; the one for no particular language puts accented letters where they belong.
        if (name == "en_US_POSIX" || name == "c") name = "root";
        UErrorCode status = U_ZERO_ERROR;
        handle = ucol_open(name.c_str(), &status);
        if (handle) {
            ucol_setAttribute(handle, UCOL_NUMERIC_COLLATION, UCOL_ON, &status);
            ucol_setAttribute(handle, UCOL_NORMALIZATION_MODE, UCOL_ON, &status);
        }
        if (U_FAILURE(status)) std::fprintf(stderr, "orvel: no order for file names here\n");
    }
    ~Collator() {
        if (handle) ucol_close(handle);
    }
    Collator(const Collator&) = delete;
    Collator& operator=(const Collator&) = delete;

    UCollator* handle = nullptr;
};

NameOrder::NameOrder(const std::string& locale) : collator(std::make_unique<Collator>(locale)) {}

NameOrder::~NameOrder() = default;

std::string NameOrder::keyOf(std::string_view name) const {
    std::string key;
    if (collator->handle) {
        const std::u16string units = utf16From(name);
        const auto length = static_cast<std::int32_t>(units.size());
        const auto write = [&] {
            return ucol_getSortKey(collator->handle, units.data(), length,
                                   reinterpret_cast<std::uint8_t*>(key.data()),
                                   static_cast<std::int32_t>(key.size()));
        };
        key.resize(4 * units.size() + 32);
        const auto needed = static_cast<std::size_t>(write());  // with a zero byte at its end
        const bool fitted = needed <= key.size();
        key.resize(needed);
        if (!fitted) write();
    }
    key += name;
    return key;
}

}  // namespace orvel
