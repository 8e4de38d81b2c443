#include "OrvelKit/Relay/IceServerProvider.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvelKit/Relay/AccountTestKit.h"

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace orvel {

void PrintTo(const IceServer& server, std::ostream* out) {
    for (const auto& url : server.urls)
        *out << url << " ";
    *out << server.username.value_or("-") << " " << server.credential.value_or("-");
}

namespace {

struct IceServerProviderTest : AccountTest {
    std::shared_ptr<IceServerProvider> provider = IceServerProvider::make(queue, cloud, http, auth);
    std::vector<std::vector<IceServer>> lists;
    const IceServer stun = IceServerProvider::fallback().at(0);
    const IceServer turn{{"turn:t.example:3478?transport=udp", "turns:t.example"}, "u", "c"};
    const std::string turnJson =
        R"({"urls":["turn:t.example:3478?transport=udp","turns:t.example"],"username":"u",)"
        R"("credential":"c"})";

    IceServerProviderTest() {
        store(sessionEndingIn(1'000'000'000));
        provider = IceServerProvider::make(queue, cloud, http, auth);
    }
    void ask() {
        provider->servers([this](std::vector<IceServer> servers) {
            EXPECT_TRUE(queue.isCurrent());
            lists.push_back(std::move(servers));
        });
        time.runPending();
    }
    std::string response(const std::string& rest) {
        return R"({"iceServers":[)" + turnJson + R"(,{"urls":["stun:s.example"]}])" + rest + "}";
    }
};

TEST_F(IceServerProviderTest, asksOnceForAllWhoAskMeanwhile) {
    EXPECT_EQ(stun.urls.size(), 2u);
    EXPECT_TRUE(stun.urls[0].starts_with("stun:") && stun.urls[0].ends_with(":3478"));
    EXPECT_TRUE(stun.urls[1].starts_with("stun:") && stun.urls[1].ends_with(":19302"));
    provider->prefetch();
    ask();
    ask();
    ASSERT_EQ(http.calls.size(), 1u);
    EXPECT_EQ(FakeHttpClient::summary(http.calls[0].request),
              "POST https://project.example/functions/v1/tarno-turn 5 s\n"
              "apikey: key\nAuthorization: Bearer old\n");
    answer(0, 200, response(""));
    const std::vector<IceServer> all{stun, turn, {{"stun:s.example"}, {}, {}}};
    EXPECT_THAT(lists, ElementsAre(all, all));
    ask();
    EXPECT_EQ(http.calls.size(), 1u);
    EXPECT_EQ(lists.back(), all);
}

TEST_F(IceServerProviderTest, usesAnAnswerForSomewhatLessThanItsLife) {
    const std::pair<const char*, std::chrono::seconds> rows[] = {
        {R"(,"ttl":3600)", 3000s}, {R"(,"ttl":300)", 60s},    {"", 3000s},
        {R"(,"ttl":null)", 3000s}, {R"(,"ttl":-1e300)", 60s}, {R"(,"ttl":1e300)", 86'400s},
        {R"(,"ttl":660)", 60s},    {R"(,"ttl":661.9)", 61s},
    };
    for (const auto& [ttl, use] : rows) {
        SCOPED_TRACE(ttl);
        time.advance(48h);
        http.calls.clear();
        ask();
        answer(0, 200, response(ttl));
        time.advance(use - 1ns);
        ask();
        EXPECT_EQ(http.calls.size(), 1u);
        time.advance(1ns);
        ask();
        ASSERT_EQ(http.calls.size(), 2u);
        answer(1, 200, response(ttl));
        time.setWallTime(time.wallTime() - 1h);
        ask();
        ASSERT_EQ(http.calls.size(), 3u);
        answer(2, std::nullopt);
    }
}

TEST_F(IceServerProviderTest, whateverGoesWrongLeavesTheStunServers) {
    const std::optional<HttpResponse> failures[] = {
        std::nullopt,
        HttpResponse{404, response("")},
        HttpResponse{201, response("")},
        HttpResponse{200, ""},
        HttpResponse{200, "[]"},
        HttpResponse{200, R"({"ttl":3600})"},
        HttpResponse{200, R"({"iceServers":{}})"},
        HttpResponse{200, R"({"iceServers":[{"urls":"turn:t.example"}]})"},
        HttpResponse{200, R"({"iceServers":[],"ttl":"3600"})"},
    };
    for (const auto& failure : failures) {
        http.calls.clear();
        lists.clear();
        ask();
        answer(0, failure);
        EXPECT_THAT(lists, ElementsAre(std::vector{stun}));
    }
    ask();  // not kept
    EXPECT_EQ(http.calls.size(), 2u);
}

TEST_F(IceServerProviderTest, aRefusedTokenIsReplacedOnce) {
    ask();
    answer(0, 401, R"({"message":"Invalid JWT"})");
    ASSERT_EQ(http.calls.size(), 2u);
    EXPECT_EQ(urlOf(1), "https://project.example/auth/v1/signup");
    answer(1, 200, tokenReply);
    ASSERT_EQ(http.calls.size(), 3u);
    EXPECT_EQ(http.calls[2].request.headers[1].second, "Bearer new");
    EXPECT_THAT(lists, IsEmpty());
    answer(2, 401, "");
    EXPECT_THAT(lists, ElementsAre(std::vector{stun}));
    EXPECT_EQ(http.calls.size(), 3u);

    ask();  // the next call may try again
    answer(3, 401, "");
    answer(4, 200, tokenReply);
    answer(5, 200, response(""));
    EXPECT_EQ(lists.back().size(), 3u);
}

TEST_F(IceServerProviderTest, withoutATokenOrAProjectItAsksForNothing) {
    auth->reset();
    ask();
    answer(0, 422, R"({"error_code":"anonymous_provider_disabled"})");
    EXPECT_THAT(lists, ElementsAre(std::vector{stun}));
    EXPECT_EQ(http.calls.size(), 1u);
    defaults.set("relayURL", "ws://localhost:4000");
    ask();
    EXPECT_THAT(lists, ElementsAre(std::vector{stun}, std::vector{stun}));
    EXPECT_EQ(http.calls.size(), 1u);
}

}  // namespace
}  // namespace orvel
