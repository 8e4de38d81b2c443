#include "OrvelKit/Base/Json.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <locale>
#include <random>

namespace orvel {
namespace {

std::string written(double value) {
    JsonWriter json;
    json.number(value);
    return json.take();
}

std::string written(std::string_view value) {
    JsonWriter json;
    json.string(value);
    return json.take();
}

std::optional<double> numberIn(std::string_view text) {
    return JsonDocument(text).root().number();
}

TEST(JsonWriter, writesNumbersInTheirShortestExactForm) {
    const std::pair<double, const char*> rows[] = {
        {0, "0"},
        {-0.0, "0"},
        {-1, "-1"},
        {1920, "1920"},
        {100'000, "100000"},
        {3.5, "3.5"},
        {0.1, "0.1"},
        {-0.25, "-0.25"},
        {1.0 / 3, "0.3333333333333333"},
        {9007199254740992.0, "9007199254740992"},
        {1e100, "1e+100"},
        {5e-324, "5e-324"},
        {std::numeric_limits<double>::max(), "1.7976931348623157e+308"},
        {std::nan(""), "0"},
        {HUGE_VAL, "0"},
        {-HUGE_VAL, "0"},
    };
    for (const auto& [value, text] : rows)
        EXPECT_EQ(written(value), text);
}

TEST(JsonWriter, everyFiniteDoubleReadsBackAsItself) {
    std::mt19937_64 random(20010101);
    for (int i = 0; i < 20'000; ++i) {
        const auto value = std::bit_cast<double>(random());
        if (!std::isfinite(value)) continue;
        const std::string text = written(value);
        ASSERT_EQ(numberIn(text), value) << text;
    }
}

TEST(JsonWriter, escapesWhatMustBeAndRepairsWhatIsNoUtf8) {
    using std::string_view_literals::operator""sv;
    const std::tuple<const char*, std::string_view, const char*> rows[] = {
        {"plain", "a/b c", R"("a/b c")"},
        {"quotes and backslash", R"(a"b\c)", R"("a\"b\\c")"},
        {"controls", "\n\t\r\x01\x1f\x7f"sv, "\"\\n\\t\\r\\u0001\\u001f\x7f\""},
        {"a zero", "a\0b"sv, R"("a\u0000b")"},
        {"Turkish, Chinese and an emoji", "ığ語😀", "\"ığ語😀\""},
        {"the ends of each length", "\u0080\u07FF\u0800\uFFFF\U00010000\U0010FFFF",
         "\"\u0080\u07FF\u0800\uFFFF\U00010000\U0010FFFF\""},
        {"Latin 1", "caf\xE9!", "\"caf\uFFFD!\""},
        {"cut short at the end", "a\xE2\x82", "\"a\uFFFD\uFFFD\""},
        {"cut short before a quote", "\xF0\x9F\x98\"", "\"\uFFFD\uFFFD\uFFFD\\\"\""},
        {"a continuation alone", "\x80z", "\"\uFFFDz\""},
        {"overlong", "\xC0\xAF\xE0\x80\xAF", "\"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\""},
        {"a surrogate", "\xED\xA0\x80", "\"\uFFFD\uFFFD\uFFFD\""},
        {"beyond the last character", "\xF4\x90\x80\x80", "\"\uFFFD\uFFFD\uFFFD\uFFFD\""},
    };
    for (const auto& [name, text, want] : rows) {
        SCOPED_TRACE(name);
        EXPECT_EQ(written(text), want);
        EXPECT_TRUE(JsonDocument(want).root().string());
    }
}

TEST(JsonWriter, writesAgainWhatWasRead) {
    const std::pair<const char*, const char*> rows[] = {
        {R"( { "a" : [ 1 , -2.50, 1e2, {} , [] ] , "b":{"c":null,"d":[true,false]} } )",
         R"({"a":[1,-2.5,100,{},[]],"b":{"c":null,"d":[true,false]}})"},
        {"[18446744073709551615,-9223372036854775808,0.1]",
         "[18446744073709551615,-9223372036854775808,0.1]"},
        {R"("\u00e7\n\"")", "\"\u00e7\\n\\\"\""},
        {R"({"a":1,"a":2})", R"({"a":2})"},
        {"null", "null"},
    };
    for (const auto& [text, expected] : rows) {
        JsonWriter json;
        json.value(JsonDocument(text).root());
        EXPECT_EQ(json.take(), expected);
    }
}

TEST(JsonDocument, readsDecimalsCorrectlyRounded) {
    const std::pair<const char*, double> rows[] = {
        {"0.3", 0.3},
        {"5.55", 5.55},
        {"1.7976931348623157e308", std::numeric_limits<double>::max()},
        {"4.9406564584124654e-324", 5e-324},
        {"1e-400", 0},
        {"2.2250738585072011e-308", 2.2250738585072011e-308},
        {"9007199254740993.0", 9007199254740992.0},
        {"9007199254740993.00000000000000000001", 9007199254740994.0},
        {"0.500000000000000166533453693773481063544750213623046875", 0.5000000000000002},
        {"784512345.12345678", 784512345.12345678},
        {"18446744073709551615", 18446744073709551615.0},
        {"123456789012345678901234567890", 123456789012345678901234567890.0},
    };
    for (const auto& [text, value] : rows)
        EXPECT_EQ(numberIn(text), value) << text;
}

TEST(JsonDocument, agreesWithTheCLibraryOnLongDecimals) {
    std::mt19937_64 random(2);
    const auto digits = [&](int most) {
        std::string text = std::to_string(1 + random() % 9);
        for (auto n = random() % most; n > 0; --n)
            text += static_cast<char>('0' + random() % 10);
        return text;
    };
    for (int i = 0; i < 20'000; ++i) {
        std::string text = digits(22) + "." + digits(22);
        if (i % 2 == 0) text += "e" + std::to_string(static_cast<int>(random() % 600) - 320);
        ASSERT_EQ(numberIn(text), std::strtod(text.c_str(), nullptr)) << text;
    }
}

TEST(JsonDocument, theLocaleChangesNothing) {
    struct Comma : std::numpunct<char> {
        char do_decimal_point() const override { return ','; }
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\3"; }
    };
    const std::locale before = std::locale::global(std::locale(std::locale(), new Comma));
    EXPECT_EQ(numberIn("12345678.123456789e2"), 1234567812.3456789);
    EXPECT_EQ(written(1234.5), "1234.5");
    EXPECT_EQ(written(12345), "12345");
    std::locale::global(before);
}

TEST(JsonDocument, integersAreExactAndMayBeSpeltAsDecimals) {
    struct Row {
        const char* text;
        std::optional<std::int64_t> asSigned;
        std::optional<std::uint64_t> asUnsigned;
    };
    const Row rows[] = {
        {"0", 0, 0},
        {"-1", -1, std::nullopt},
        {"9223372036854775807", INT64_MAX, INT64_MAX},
        {"9223372036854775808", std::nullopt, 9223372036854775808u},
        {"-9223372036854775808", INT64_MIN, std::nullopt},
        {"-9223372036854775809", std::nullopt, std::nullopt},
        {"18446744073709551615", std::nullopt, UINT64_MAX},
        {"18446744073709551616", std::nullopt, std::nullopt},
        {"2.0", 2, 2},
        {"1e2", 100, 100},
        {"-2.50e1", -25, std::nullopt},
        {"2.5", std::nullopt, std::nullopt},
        {"1e300", std::nullopt, std::nullopt},
        {"-1e300", std::nullopt, std::nullopt},
        {"true", std::nullopt, std::nullopt},
        {"\"1\"", std::nullopt, std::nullopt},
        {"null", std::nullopt, std::nullopt},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        const JsonDocument document(row.text);
        EXPECT_EQ(document.root().integer(), row.asSigned);
        EXPECT_EQ(document.root().unsignedInteger(), row.asUnsigned);
    }
}

TEST(JsonDocument, refusesWhatIsNotOneDocument) {
    const std::string deepest(JsonDocument::maxDepth, '[');
    const std::pair<const char*, std::string> rows[] = {
        {"nothing", ""},
        {"white space", " \n"},
        {"cut short", R"({"a":1)"},
        {"cut short in a number", "-"},
        {"two documents", "1 2"},
        {"trailing comma", "[1,]"},
        {"a comment", "1 // one"},
        {"single quotes", "'a'"},
        {"not a number", "NaN"},
        {"a leading zero", "01"},
        {"too large for a double", "1e400"},
        {"too large for its exponent", "1e99999999999999999999"},
        {"a raw line feed", "\"a\nb\""},
        {"half a surrogate pair", R"("\ud83d")"},
        {"Latin 1", "\"caf\xE9\""},
        {"a byte order mark", "\xEF\xBB\xBF{}"},
        {"too deep", deepest + "[" + "]" + std::string(JsonDocument::maxDepth, ']')},
    };
    for (const auto& [name, text] : rows) {
        SCOPED_TRACE(name);
        EXPECT_THROW(JsonDocument{text}, JsonError);
    }
    EXPECT_NO_THROW(JsonDocument(deepest + std::string(JsonDocument::maxDepth, ']')));
}

TEST(JsonDocument, theLastOfEqualNamesCounts) {
    const JsonDocument document(R"({"a":1,"b":2,"a":3})");
    EXPECT_EQ(document.root().size(), 2u);
    EXPECT_EQ(document.root().member("a")->integer(), 3);
}

TEST(JsonDocument, stringsComeUnescaped) {
    const JsonDocument document(R"( ["\u0131\n\ud83d\ude00\/", "a\u0000b", {}] )");
    EXPECT_EQ(document.root().element(0).string(), "ı\n😀/");
    EXPECT_EQ(document.root().element(1).string(), std::string_view("a\0b", 3));
    EXPECT_TRUE(document.root().element(2).isObject());
}

}  // namespace
}  // namespace orvel
