#include "OrvelKit/Wire/Control.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "OrvelKit/Base/HexForTests.h"

namespace orvel {

void PrintTo(const Control& control, std::ostream* out) {
    *out << control.toJson();
}

namespace {

WallTime at(double secondsSince2001) {
    return fromSecondsSinceReferenceDate(secondsSince2001);
}

struct Form {
    Control control;
    const char* json;
};

const Form forms[] = {
    {{Hello{2, "4oymiquy7qobjgx3", "Ayşe'nin telefonu", std::nullopt, 1920, std::nullopt}},
     R"({"hello":{"_0":{"version":2,"deviceID":"4oymiquy7qobjgx3",)"
     R"("deviceName":"Ayşe'nin telefonu","maxPixels":1920}}})"},
    {{Hello{2, "a", "b", "012345", 1280, hex("FFFEFD00")}},
     R"({"hello":{"_0":{"version":2,"deviceID":"a","deviceName":"b","pin":"012345",)"
     R"("maxPixels":1280,"publicKey":"//79AA=="}}})"},
    {{Control::Move{3.5, -1}}, R"({"move":{"dx":3.5,"dy":-1}})"},
    {{Control::MoveTo{0, 0.1}}, R"({"moveTo":{"x":0,"y":0.1}})"},
    {{Control::Button{MouseButton::left, true, 2}},
     R"({"button":{"_0":"left","down":true,"clicks":2}})"},
    {{Control::Button{MouseButton::right, false, 1}},
     R"({"button":{"_0":"right","down":false,"clicks":1}})"},
    {{Control::Scroll{0, -2.25, ScrollPhase::began}},
     R"({"scroll":{"dx":0,"dy":-2.25,"phase":"began"}})"},
    {{Control::Scroll{0, 0, ScrollPhase::changed}},
     R"({"scroll":{"dx":0,"dy":0,"phase":"changed"}})"},
    {{Control::Scroll{0, 0, ScrollPhase::ended}}, R"({"scroll":{"dx":0,"dy":0,"phase":"ended"}})"},
    {{Control::Scroll{0, 0, ScrollPhase::momentum}},
     R"({"scroll":{"dx":0,"dy":0,"phase":"momentum"}})"},
    {{Control::Scroll{0, 0, ScrollPhase::momentumEnded}},
     R"({"scroll":{"dx":0,"dy":0,"phase":"momentumEnded"}})"},
    {{Control::Key{0, true, {Modifiers::shift | Modifiers::command}}},
     R"({"key":{"code":0,"down":true,"modifiers":9}})"},
    {{Control::Key{65535, false, {255}}}, R"({"key":{"code":65535,"down":false,"modifiers":255}})"},
    {{Control::Text{"abc"}}, R"({"text":{"_0":"abc"}})"},
    {{Control::Text{""}}, R"({"text":{"_0":""}})"},
    {{Control::RequestKeyframe{}}, R"({"requestKeyframe":{}})"},
    {{Control::Ping{UINT64_MAX}}, R"({"ping":{"_0":18446744073709551615}})"},
    {{Control::SelectDisplay{UINT32_MAX}}, R"({"selectDisplay":{"_0":4294967295}})"},
    {{Control::Audio{false}}, R"({"audio":{"_0":false}})"},
    {{Control::ListDirectory{}}, R"({"listDirectory":{}})"},
    {{Control::ListDirectory{"/home"}}, R"({"listDirectory":{"_0":"/home"}})"},
    {{Control::FetchFile{3, "/home/a"}}, R"({"fetchFile":{"id":3,"path":"/home/a"}})"},
    {{Control::CancelFetch{3}}, R"({"cancelFetch":{"_0":3}})"},
    {{Welcome{"Mac", 1512, 982, 1920, 1246, {}, {}, {}, {}, {}}},
     R"({"welcome":{"_0":{"macName":"Mac","screenWidth":1512,"screenHeight":982,)"
     R"("videoWidth":1920,"videoHeight":1246}}})"},
    {{Welcome{"Mac", 1512.5, 982, 1920, 1246, Bytes(32, 0),
              std::vector<DisplayInfo>{{1, "Ekran 1", 1512.5, 982}, {2, "", 800, 600}}, 1, 2,
              "1.0 (7)"}},
     R"({"welcome":{"_0":{"macName":"Mac","screenWidth":1512.5,"screenHeight":982,)"
     R"("videoWidth":1920,"videoHeight":1246,)"
     R"("agentKey":"AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA=",)"
     R"("displays":[{"id":1,"name":"Ekran 1","width":1512.5,"height":982},{"id":2,)"
     R"("name":"","width":800,"height":600}],)"
     R"json("displayID":1,"protocolVersion":2,"agentVersion":"1.0 (7)"}}})json"},
    {{Control::Rejected{Rejection::pinRequired}}, R"({"rejected":{"_0":"pinRequired"}})"},
    {{Control::Rejected{Rejection::wrongPin}}, R"({"rejected":{"_0":"wrongPin"}})"},
    {{Control::Rejected{Rejection::versionMismatch}}, R"({"rejected":{"_0":"versionMismatch"}})"},
    {{Control::Rejected{Rejection::phoneOutdated}}, R"({"rejected":{"_0":"phoneOutdated"}})"},
    {{Control::Rejected{Rejection::permissionsMissing}},
     R"({"rejected":{"_0":"permissionsMissing"}})"},
    {{Control::Pong{0}}, R"({"pong":{"_0":0}})"},
    {{DirectoryListing{"/", {}, {}, {}}}, R"({"directory":{"_0":{"path":"/","entries":[]}}})"},
    {{DirectoryListing{
         "/a/b", "/a", {{"c", true, 0, {}}, {"d", false, 9'000'000'000, at(10)}}, "no"}},
     R"({"directory":{"_0":{"path":"/a/b","parent":"/a","entries":[{"name":"c",)"
     R"("isDirectory":true,"size":0},)"
     R"({"name":"d","isDirectory":false,"size":9000000000,"modified":10}],"error":"no"}}})"},
    {{Control::FrontApp{"org.mozilla.firefox", "Firefox"}},
     R"({"frontApp":{"bundleID":"org.mozilla.firefox","name":"Firefox"}})"},
    {{Control::TextFocus{true}}, R"({"textFocus":{"_0":true}})"},
    {{Control::Clipboard{"a\nb"}}, R"({"clipboard":{"_0":"a\nb"}})"},
};

TEST(Control, everyCaseHasTheJsonWrittenHere) {
    std::vector<bool> seen(std::variant_size_v<Control::Case>);
    for (const Form& form : forms) {
        SCOPED_TRACE(form.json);
        EXPECT_EQ(form.control.toJson(), form.json);
        EXPECT_EQ(Control::fromJson(form.json), form.control);
        seen[form.control.value.index()] = true;
    }
    EXPECT_EQ(std::count(seen.begin(), seen.end(), true), 21);
}

TEST(Control, readsOtherSpellingsOfTheSame) {
    const Form rows[] = {
        {{Control::Move{2, 100}}, " { \"move\" : {\"dy\":1e2, \"dx\":2.0} }\n"},
        {{Control::Button{MouseButton::left, true, 2}},
         R"({"button":{"clicks":2.0,"down":true,"_0":"\u006ceft","more":[null]}})"},
        {{Control::Key{65535, true, {255}}},
         R"({"key":{"code":6.5535e4,"down":true,"modifiers":255.0}})"},
        {{Control::Ping{9}}, R"({"ping":{"_0":1,"_0":9}})"},
        {{Control::Ping{9}}, R"({"ping":{"_0":1},"ping":{"_0":9}})"},
        {{Control::RequestKeyframe{}}, R"({"requestKeyframe":{"why":1}})"},
        {{Control::ListDirectory{}}, R"({"listDirectory":{"_0":null}})"},
        {{Hello{2, "a", "b", std::nullopt, 1, std::nullopt}},
         R"({"hello":{"_0":{"version":2,"deviceID":"a","deviceName":"b","pin":null,)"
         R"("maxPixels":1,"publicKey":null}}})"},
        {{DirectoryListing{"/", {}, {{"a", false, 1, {}}}, {}}},
         R"({"directory":{"_0":{"path":"\/","parent":null,"entries":[{"name":"a",)"
         R"("isDirectory":false,"size":1,"modified":null}],"error":null}}})"},
    };
    for (const Form& row : rows) {
        SCOPED_TRACE(row.json);
        EXPECT_EQ(Control::fromJson(row.json), row.control);
    }
}

TEST(Control, saysWhatItRefuses) {
    const char* const oneKey = "Invalid number of keys found, expected one.";
    const std::pair<const char*, const char*> rows[] = {
        {"", "not JSON: incomplete JSON"},
        {"{", "not JSON: incomplete JSON"},
        {"{}", oneKey},
        {R"({"move":{"dx":1,"dy":1},"ping":{"_0":1}})", oneKey},
        {R"({"ping":{"_0":1},"more":1})", oneKey},
        {"[]", "the document is no object"},
        {"1", "the document is no object"},
        {"null", "the document is no object"},
        {R"("requestKeyframe")", "the document is no object"},
        {R"({"Move":{"dx":1,"dy":1}})", "the document names no known case"},
        {R"({"":{}})", "the document names no known case"},
        {R"({"requestKeyframe":null})", "requestKeyframe is no object"},
        {R"({"ping":[]})", "ping is no object"},
        {R"({"move":{"dx":1}})", "move.dy is missing"},
        {R"({"move":{"dx":1,"dy":null}})", "move.dy is no number"},
        {R"({"move":{"dx":1,"dy":"1"}})", "move.dy is no number"},
        {R"({"move":{"dx":1,"dy":1e999}})", "not JSON: exponent overflow"},
        {R"({"ping":{"_0":-1}})", "ping._0 is no whole number in range"},
        {R"({"ping":{"_0":18446744073709551616}})", "ping._0 is no whole number in range"},
        {R"({"ping":{"_0":1.5}})", "ping._0 is no whole number in range"},
        {R"({"ping":{"_0":true}})", "ping._0 is no whole number in range"},
        {R"({"selectDisplay":{"_0":4294967296}})", "selectDisplay._0 is no whole number in range"},
        {R"({"key":{"code":65536,"down":true,"modifiers":0}})",
         "key.code is no whole number in range"},
        {R"({"key":{"code":1,"down":1,"modifiers":0}})", "key.down is no boolean"},
        {R"({"key":{"code":1,"down":true,"modifiers":256}})",
         "key.modifiers is no whole number in range"},
        {R"({"key":{"code":1,"down":true,"modifiers":-1}})",
         "key.modifiers is no whole number in range"},
        {R"({"key":{"code":1,"down":true,"modifiers":["shift"]}})",
         "key.modifiers is no whole number in range"},
        {R"({"button":{"_0":"middle","down":true,"clicks":1}})", "button._0 is none of its values"},
        {R"({"button":{"_0":0,"down":true,"clicks":1}})", "button._0 is no string"},
        {R"({"button":{"_0":"left","down":true,"clicks":9223372036854775808}})",
         "button.clicks is no whole number in range"},
        {R"({"scroll":{"dx":0,"dy":0,"phase":"Began"}})", "scroll.phase is none of its values"},
        {R"({"rejected":{"_0":""}})", "rejected._0 is none of its values"},
        {R"({"text":{}})", "text._0 is missing"},
        {R"({"text":{"_0":1}})", "text._0 is no string"},
        {R"({"listDirectory":{"_0":1}})", "listDirectory._0 is no string"},
        {R"({"hello":{"_0":{"version":2,"deviceID":"a","deviceName":"b"}}})",
         "hello._0.maxPixels is missing"},
        {R"({"hello":{"_0":{"version":2,"deviceID":"a","deviceName":"b","maxPixels":1,)"
         R"("publicKey":"AA"}}})",
         "hello._0.publicKey is no base64"},
        {R"({"directory":{"_0":{"path":"/","entries":{}}}})", "directory._0.entries is no array"},
        {R"({"directory":{"_0":{"path":"/","entries":[)"
         R"({"name":"a","isDirectory":true,"size":1},{}]}}})",
         "directory._0.entries.1.name is missing"},
        {R"({"directory":{"_0":{"path":"/","entries":[1]}}})",
         "directory._0.entries.0 is no object"},
    };
    for (const auto& [json, want] : rows) {
        SCOPED_TRACE(json);
        try {
            Control::fromJson(json);
            ADD_FAILURE() << "accepted";
        } catch (const ControlError& error) {
            EXPECT_STREQ(error.what(), want);
        }
    }
}

TEST(Control, whatJsonCannotHoldIsReplaced) {
    EXPECT_EQ((Control{Control::Move{HUGE_VAL, std::nan("")}}.toJson()),
              R"({"move":{"dx":0,"dy":0}})");
    EXPECT_EQ((Control{Control::FrontApp{"x", "caf\xE9"}}.toJson()),
              "{\"frontApp\":{\"bundleID\":\"x\",\"name\":\"caf\uFFFD\"}}");
}

TEST(Control, aDocumentOfTheLargestFrameDecodes) {
    const std::string text(16'700'000, 'x');
    EXPECT_TRUE(Control::fromJson(Control{Control::Clipboard{text}}.toJson()) ==
                Control{Control::Clipboard{text}});

    DirectoryListing listing{"/", {}, std::vector<FileEntry>(150'000), {}};
    for (std::size_t i = 0; i < listing.entries.size(); ++i)
        listing.entries[i] = {"file number " + std::to_string(i), false, 1, at(7e8 + i * 0.125)};
    const std::string json = Control{listing}.toJson();
    EXPECT_LT(json.size(), 16'777'216u);
    EXPECT_TRUE(Control::fromJson(json) == Control{listing});
}

TEST(Control, rawValuesAreThoseOfTheWire) {
    EXPECT_STREQ(rawValue(MouseButton::right), "right");
    EXPECT_STREQ(rawValue(ScrollPhase::momentumEnded), "momentumEnded");
    EXPECT_STREQ(rawValue(Rejection::phoneOutdated), "phoneOutdated");
}

}  // namespace
}  // namespace orvel
