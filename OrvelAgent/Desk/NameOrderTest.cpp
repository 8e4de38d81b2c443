#include "OrvelAgent/Desk/NameOrder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace orvel {
namespace {

using Names = std::vector<std::string>;

Names sorted(Names names, const std::string& locale) {
    const NameOrder order(locale);
    std::reverse(names.begin(), names.end());
    std::stable_sort(names.begin(), names.end(),
                     [&](const auto& a, const auto& b) { return order.keyOf(a) < order.keyOf(b); });
    return names;
}

TEST(NameOrder, namesStandAsPeopleExpect) {
    const struct {
        const char* name;
        const char* locale;
        Names want;
    } rows[] = {
        {"numbers by value", "en_US", {"a1", "a2", "a10", "a10b2", "a10b11", "a100"}},
        {"numbers longer than any integer",
         "en_US",
         {"18446744073709551616", "18446744073709551617", "99999999999999999999999"}},
        {"leading zeros change nothing but equality", "en_US", {"01", "1", "02", "2"}},
        {"capitals beside small letters", "en_US", {"apple", "Apple", "banana", "Cherry"}},
        {"accents beside plain letters", "en_US", {"etude", "étude", "étudier", "fin"}},
        {"Turkish letters in Turkish",
         "tr_TR",
         {"cam", "çam", "gaz", "ğaz", "hal", "ırmak", "irmik", "oda", "öde", "sap", "şap", "ulu",
          "ülke"}},
        {"Turkish letters elsewhere", "en_US", {"cam", "çam", "cap", "çap"}},
        {"Swedish has its own end of the alphabet", "sv_SE", {"zon", "ål", "äng", "öra"}},
        {"no language at all", "c", {"a2", "a10", "Ab", "çam", "de", "Ş", "t", "z"}},
        {"composed and decomposed are neighbours", "en_US", {"ea", "e\u0301b", "éc", "ed"}},
        {"scripts after one another", "en_US", {"1", "a", "α", "я", "あ"}},
        {"an empty name", "en_US", {"", "a"}},
        {"bytes that are no text", "en_US", {"a\xFE", "a\xFF", "b"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(sorted(row.want, row.locale), row.want);
    }
}

TEST(NameOrder, differentNamesHaveDifferentKeys) {
    const NameOrder order("en_US");
    const Names equalToTheLocale = {"1", "01", "é", "e\u0301", "a\xFF", "a\xFE", "a"};
    for (const auto& a : equalToTheLocale) {
        for (const auto& b : equalToTheLocale)
            EXPECT_EQ(order.keyOf(a) == order.keyOf(b), a == b) << a << " " << b;
    }
}

TEST(NameOrder, aLongNameIsComparedToItsEnd) {
    const std::string stem(4000, 'x');
    EXPECT_THAT(sorted({stem + "9", stem + "10"}, "en_US"),
                testing::ElementsAre(stem + "9", stem + "10"));
}

}  // namespace
}  // namespace orvel
