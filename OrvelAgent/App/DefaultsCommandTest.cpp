#include "OrvelAgent/App/DefaultsCommand.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "OrvelAgent/Platform/Posix/FileDefaults.h"
#include "OrvelAgent/Platform/Posix/StateTestKit.h"
#include "Tests/Support/TemporaryFolder.h"

namespace orvel {
namespace {

struct DefaultsCommandTest : testing::Test {
    struct Outcome {
        int status;
        std::string out, err;
    };
    Outcome run(const std::vector<std::string>& arguments) {
        std::ostringstream out, err;
        const int status = runDefaultsCommand(defaults, arguments, out, err);
        return {status, out.str(), err.str()};
    }

    TemporaryFolder folder;
    FileDefaults defaults{folder / "defaults.json"};
};

struct ValueRow {
    const char* name;
    const char* argument;
    const char* stored;  // null: refused as a wrong argument
};

const ValueRow valueRows[] = {
    {"true is a boolean", "true", "true"},
    {"a bare word is a string", "super", "\"super\""},
    {"an address is a string", "wss://x/y?z=1", "\"wss://x/y?z=1\""},
    {"several words too", "two words", "\"two words\""},
    {"nothing is an empty string", "", "\"\""},
    {"a number", "1.50", "1.50"},
    {"what is no number in JSON is a string", "007", "\"007\""},
    {"a quoted string", "\"true\"", "\"true\""},
    {"a list", " [1, \"a\"] ", "[1,\"a\"]"},
    {"an object", R"({"id": "AAH/"})", R"({"id":"AAH/"})"},
    {"half an object is a mistake", "{\"id\":", nullptr},
    {"an open quote is a mistake", "\"abc", nullptr},
    {"an open list is a mistake", "[1,", nullptr},
};

TEST_F(DefaultsCommandTest, storesEachValueAsWhatItLooksLike) {
    for (const auto& row : valueRows) {
        SCOPED_TRACE(row.name);
        run({"delete", "key"});
        EXPECT_EQ(run({"write", "key", row.argument}).status, row.stored ? 0 : 2);
        EXPECT_EQ(defaults.json("key").value_or("none"), row.stored ? row.stored : "none");
    }
}

TEST_F(DefaultsCommandTest, readsWhatIsStored) {
    EXPECT_EQ(run({"read"}).out, "{}\n");
    defaults.set("keepAwake", true);
    defaults.set("trustedKeys", std::map<std::string, Bytes>{{"id", {0, 1, 255}}});
    EXPECT_EQ(run({"read", "keepAwake"}).out, "true\n");
    EXPECT_EQ(run({"read", "trustedKeys"}).out, "{\n  \"id\": \"AAH/\"\n}\n");
    EXPECT_EQ(run({"read"}).out,
              "{\n  \"keepAwake\": true,\n  \"trustedKeys\": {\n    \"id\": \"AAH/\"\n  }\n}\n");
    const auto absent = run({"read", "absent"});
    EXPECT_EQ(absent.status, 1);
    EXPECT_EQ(absent.out, "");
    EXPECT_NE(absent.err, "");
}

TEST_F(DefaultsCommandTest, deletesOneKey) {
    defaults.set("a", true);
    defaults.set("b", true);
    EXPECT_EQ(run({"delete", "a"}).status, 0);
    EXPECT_EQ(run({"delete", "a"}).status, 0) << "it is gone, as was asked";
    EXPECT_EQ(run({"read"}).out, "{\n  \"b\": true\n}\n");
}

TEST_F(DefaultsCommandTest, failsWhenTheFileCannotBeUsed) {
    std::filesystem::create_directory(folder / "defaults.json");
    EXPECT_EQ(run({"read"}).status, 1);
    EXPECT_EQ(run({"read", "a"}).status, 1);
    EXPECT_EQ(run({"write", "a", "b"}).status, 1);
    EXPECT_EQ(run({"delete", "a"}).status, 1);
}

TEST_F(DefaultsCommandTest, saysHowItIsUsed) {
    const std::vector<std::vector<std::string>> wrong = {
        {},         {"read", "a", "b"},   {"write", "a"}, {"write", "a", "b", "c"},
        {"delete"}, {"delete", "a", "b"}, {"list"},       {"write"},
    };
    for (const auto& arguments : wrong) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        const auto outcome = run(arguments);
        EXPECT_EQ(outcome.status, 2);
        EXPECT_EQ(outcome.out, "");
        EXPECT_NE(outcome.err.find("usage:"), std::string::npos);
    }
}

}  // namespace
}  // namespace orvel
