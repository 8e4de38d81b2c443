#include "OrvelKit/Relay/SignalMessage.h"

#include <gtest/gtest.h>

namespace orvel {
namespace {

struct Form {
    SignalMessage message;
    const char* json;
};

const Form forms[] = {
    {{SignalMessage::Probe{}}, R"({"probe":{}})"},
    {{SignalMessage::Here{"Ayşe'nin bilgisayarı", true}},
     R"({"here":{"macName":"Ayşe'nin bilgisayarı","busy":true}})"},
    {{SignalMessage::Standby{"Mac"}}, R"({"standby":{"macName":"Mac"}})"},
    {{SignalMessage::Unlock{}}, R"({"unlock":{}})"},
    {{SignalMessage::Unlocked{1731718800.25}}, R"({"unlocked":{"until":1731718800.25}})"},
    {{SignalMessage::Offer{"v=0\r\n"}}, R"({"offer":{"sdp":"v=0\r\n"}})"},
    {{SignalMessage::Answer{""}}, R"({"answer":{"sdp":""}})"},
    {{SignalMessage::Candidate{{"candidate:1 1 udp 1 ::1 9 typ host", "0", -1}}},
     R"({"candidate":{"_0":{"sdp":"candidate:1 1 udp 1 ::1 9 typ host","sdpMid":"0",)"
     R"("sdpMLineIndex":-1}}})"},
    {{SignalMessage::Candidate{{"", std::nullopt, 2147483647}}},
     R"({"candidate":{"_0":{"sdp":"","sdpMLineIndex":2147483647}}})"},
    {{SignalMessage::Bye{}}, R"({"bye":{}})"},
};

TEST(SignalMessage, everyCaseHasTheJsonWrittenHere) {
    std::vector<bool> seen(std::variant_size_v<SignalMessage::Case>);
    for (const Form& form : forms) {
        SCOPED_TRACE(form.json);
        EXPECT_EQ(form.message.toJson(), form.json);
        EXPECT_EQ(SignalMessage::fromJson(form.json), form.message);
        seen[form.message.value.index()] = true;
    }
    EXPECT_EQ(std::count(seen.begin(), seen.end(), true), 9);
}

TEST(SignalMessage, refusesAllElse) {
    const char* const rows[] = {
        "",
        "null",
        "[]",
        R"("probe")",
        R"({})",
        R"({"probe":{},"bye":{}})",
        R"({"Probe":{}})",
        R"({"hello":{}})",
        R"({"probe":null})",
        R"({"probe":[]})",
        R"({"here":{"macName":"Mac"}})",
        R"({"here":{"macName":"Mac","busy":1}})",
        R"({"standby":{"macName":null}})",
        R"({"unlocked":{"until":"1"}})",
        R"({"unlocked":{"until":1e999}})",
        R"({"offer":{"sdp":1}})",
        R"({"candidate":{"sdp":"","sdpMLineIndex":0}})",
        R"({"candidate":{"_0":{"sdp":""}}})",
        R"({"candidate":{"_0":{"sdp":"","sdpMLineIndex":2147483648}}})",
        R"({"candidate":{"_0":{"sdp":"","sdpMLineIndex":0.5}}})",
        R"({"candidate":{"_0":{"sdp":"","sdpMid":0,"sdpMLineIndex":0}}})",
        R"({"bye":{}} {})",
    };
    for (const char* const json : rows) {
        EXPECT_THROW(SignalMessage::fromJson(json), JsonError) << json;
    }
    for (const char* const json : {"{}", R"({"probe":{},"bye":{}})"}) {
        try {
            SignalMessage::fromJson(json);
        } catch (const JsonError& error) {
            EXPECT_STREQ(error.what(), "Invalid number of keys found, expected one.");
        }
    }
}

}  // namespace
}  // namespace orvel
