#include "OrvelKit/Base/JsonText.h"

#include <gtest/gtest.h>

#include "OrvelKit/Base/Json.h"

namespace orvel {
namespace {

TEST(JsonText, whatPassesThroughKeepsEveryDigit) {
    const std::string value =
        R"( {"a" : [1.10, -0, 1e400000, 18446744073709551616], "b":"\u00e9 \\" } )";
    EXPECT_EQ(compactJson(value),
              R"({"a":[1.10,-0,1e400000,18446744073709551616],"b":"\u00e9 \\"})");
    EXPECT_EQ(compactJson(prettyJson(value)), compactJson(value));
}

struct MembersRow {
    const char* name;
    const char* text;
    std::optional<std::vector<JsonMember>> want;
};

const MembersRow membersRows[] = {
    {"nothing", "{ }", std::vector<JsonMember>{}},
    {"keys are decoded", R"({"a\"\u0062":1})", {{{"a\"b", "1"}}}},
    {"order is kept", R"({"b":true,"a":null})", {{{"b", "true"}, {"a", "null"}}}},
    {"the last of equal keys counts", R"({"a":1,"b":2,"a":[3]})", {{{"a", "[3]"}, {"b", "2"}}}},
    {"brackets in strings are text",
     R"({"a":{"}":"]{"},"b":","})",
     {{{"a", R"({"}":"]{"})"}, {"b", R"(",")"}}}},
    {"an array is no object", "[1]", std::nullopt},
    {"a string is no object", R"("{")", std::nullopt},
};

TEST(JsonText, takesEachObjectApart) {
    for (const auto& row : membersRows) {
        SCOPED_TRACE(row.name);
        const JsonDocument document(row.text);  // rows are JSON
        EXPECT_EQ(jsonMembers(row.text), row.want);
    }
}

TEST(JsonText, aLineForEachMember) {
    EXPECT_EQ(prettyJson(R"({"a":{},"b":[],"c":{"d":[1,"x, y"]},"e":true})"),
              "{\n"
              "  \"a\": {},\n"
              "  \"b\": [],\n"
              "  \"c\": {\n"
              "    \"d\": [\n"
              "      1,\n"
              "      \"x, y\"\n"
              "    ]\n"
              "  },\n"
              "  \"e\": true\n"
              "}");
    EXPECT_EQ(prettyJson(" 12 "), "12");
}

}  // namespace
}  // namespace orvel
