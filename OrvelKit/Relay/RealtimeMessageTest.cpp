#include "OrvelKit/Relay/RealtimeMessage.h"

#include <gtest/gtest.h>

namespace orvel {

void PrintTo(const RealtimeMessage& message, std::ostream* out) {
    *out << message.event << " ref " << message.ref.value_or("-") << " status "
         << message.status.value_or("-") << " payload " << message.innerPayload.value_or("-");
}

namespace {

TEST(RealtimeMessage, readsWhatTheServiceWrites) {
    const std::pair<const char*, std::optional<RealtimeMessage>> rows[] = {
        {R"({"topic":"realtime:T","event":"phx_reply","ref":"1",)"
         R"("payload":{"status":"ok","response":{"postgres_changes":[]}}})",
         RealtimeMessage{"phx_reply", "1", "ok", {}}},
        {R"({"ref":"1","event":"phx_reply","payload":{"status":"error","response":{"reason":"x"}}})",
         RealtimeMessage{"phx_reply", "1", "error", {}}},
        {R"({"topic":"T","event":"broadcast","ref":null,)"
         R"("payload":{"type":"broadcast","event":"signal","payload":{"b":[1.0,"\u00e7"],"a":{}}}})",
         RealtimeMessage{"broadcast", {}, {}, R"({"b":[1,"ç"],"a":{}})"}},
        {R"({"event":"broadcast","payload":{"payload":[{}]}})",
         RealtimeMessage{"broadcast", {}, {}, {}}},
        {R"({"event":"broadcast","payload":{}})", RealtimeMessage{"broadcast", {}, {}, {}}},
        {R"({"event":"broadcast","payload":"payload"})", RealtimeMessage{"broadcast", {}, {}, {}}},
        {R"({"event":"broadcast"})", RealtimeMessage{"broadcast", {}, {}, {}}},
        {R"({"event":"phx_close","ref":1,"payload":{"status":1}})",
         RealtimeMessage{"phx_close", {}, {}, {}}},
        {R"({"event":""})", RealtimeMessage{"", {}, {}, {}}},
        {R"({"event":1})", {}},
        {R"({"topic":"T"})", {}},
        {R"(["1","1","T","phx_reply",{"status":"ok"}])", {}},
        {"null", {}},
        {"", {}},
        {"\xff\xfe", {}},
    };
    for (const auto& [text, expected] : rows) {
        EXPECT_EQ(RealtimeMessage::parse(text), expected) << text;
    }
    EXPECT_FALSE(RealtimeMessage::parse(R"({"event":)" + std::string(100'000, '[')));
}

TEST(RealtimeMessage, broadcastsObjectsOnly) {
    EXPECT_EQ(RealtimeMessage::broadcast("t", 2, "1", bytesOf(" {\"a\" : [\"\\/\"]}\n")),
              R"({"topic":"t","event":"broadcast","ref":"2","join_ref":"1",)"
              R"("payload":{"type":"broadcast","event":"signal","payload":{"a":["/"]}}})");
    for (const auto* text : {"", "{", "[]", "null", "\"a\"", "{} {}", "{\"a\":\xff}"}) {
        EXPECT_FALSE(RealtimeMessage::broadcast("t", 2, "1", bytesOf(text))) << text;
    }
}

}  // namespace
}  // namespace orvel
