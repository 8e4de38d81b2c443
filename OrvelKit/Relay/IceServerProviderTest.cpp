#include "OrvelKit/Relay/IceServerProvider.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvelKit/Base/FakeDefaults.h"
#include "OrvelKit/Base/MemorySecretStore.h"
#include "OrvelKit/Relay/FakeHttpClient.h"

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

using Token = std::optional<std::string>;

// Account and provider on virtual time, with a project whose answers the test gives.
struct AccountTest : testing::Test {
    VirtualTime time;
    FakeDefaults defaults;
    MemorySecretStore secrets;
    FakeHttpClient http;
    OrvelCloud cloud{defaults, RelayProject::from("https://project.example", "key")};
    SerialQueue queue{"orvel.account", time};
    std::shared_ptr<AnonymousAuth> auth = AnonymousAuth::make(queue, cloud, http, secrets);
    std::vector<Token> tokens;

    double now() const {
        return std::chrono::duration<double>(time.wallTime().time_since_epoch()).count();
    }
    void askForToken() {
        auth->accessToken([this](const Token& token) {
            EXPECT_TRUE(queue.isCurrent());
            tokens.push_back(token);
        });
        time.runPending();
    }
    void answer(std::size_t call, std::optional<HttpResponse> response) {
        ASSERT_LT(call, http.calls.size());
        const auto completion = std::exchange(http.calls[call].completion, nullptr);
        completion(std::move(response));
        time.runPending();
    }
    void answer(std::size_t call, int status, std::string body) {
        answer(call, HttpResponse{status, std::move(body)});
    }
    std::string urlOf(std::size_t call) { return http.calls.at(call).request.url.text(); }
    std::string stored(const std::string& account = "orvel.auth") {
        return std::string(textOf(secrets.read("com.halverton.orvel.auth", account).data));
    }
    void store(const std::string& json) {
        secrets.replace("com.halverton.orvel.auth", "orvel.auth", bytesOf(json));
        auth = AnonymousAuth::make(queue, cloud, http, secrets);
        time.runPending();
    }
    std::string sessionEndingIn(int seconds) {
        return R"({"accessToken":"old","refreshToken":"r \"1\"","expiresAt":)" +
               std::to_string(static_cast<long>(now()) + seconds) + "}";
    }
};

struct AnonymousAuthTest : AccountTest {};

constexpr const char* reply =
    R"({"access_token":"new","refresh_token":"r2","token_type":"bearer"})";

TEST_F(AnonymousAuthTest, signsUpOnceAndKeepsTheSession) {
    askForToken();
    ASSERT_EQ(http.calls.size(), 1u);
    EXPECT_EQ(FakeHttpClient::summary(http.calls[0].request),
              "POST https://project.example/auth/v1/signup 8 s\n"
              "apikey: key\nContent-Type: application/json\n{}");
    askForToken();  // shares the answer
    EXPECT_EQ(http.calls.size(), 1u);
    answer(0, 200, reply);
    EXPECT_THAT(tokens, ElementsAre("new", "new"));
    EXPECT_EQ(stored(), R"({"accessToken":"new","refreshToken":"r2","expiresAt":)" +
                            std::to_string(static_cast<long>(now()) + 3600) + "}");

    // Another process, later.
    auth = AnonymousAuth::make(queue, cloud, http, secrets);
    time.advance(3540s - 1ms);
    askForToken();
    EXPECT_EQ(http.calls.size(), 1u);
    EXPECT_THAT(tokens, ElementsAre("new", "new", "new"));
    time.advance(1ms);
    askForToken();
    EXPECT_EQ(http.calls.size(), 2u);
}

TEST_F(AnonymousAuthTest, refreshesASessionThatEnds) {
    store(sessionEndingIn(61));
    askForToken();
    EXPECT_THAT(tokens, ElementsAre("old"));
    store(sessionEndingIn(59));
    askForToken();
    ASSERT_EQ(http.calls.size(), 1u);
    EXPECT_EQ(FakeHttpClient::summary(http.calls[0].request),
              "POST https://project.example/auth/v1/token?grant_type=refresh_token 8 s\n"
              "apikey: key\nContent-Type: application/json\n"
              R"({"refresh_token":"r \"1\""})");
    answer(0, 200, R"({"access_token":"a","refresh_token":"b","expires_in":1,"expires_at":7.5})");
    EXPECT_THAT(tokens, ElementsAre("old", "a"));
    EXPECT_EQ(stored(), R"({"accessToken":"a","refreshToken":"b","expiresAt":7.5})");
}

TEST_F(AnonymousAuthTest, anythingButARefreshLeadsToASignUpAndAnythingElseToNoToken) {
    const std::optional<HttpResponse> failures[] = {
        std::nullopt,
        HttpResponse{400, R"({"error_code":"refresh_token_not_found"})"},
        HttpResponse{201, reply},
        HttpResponse{200, ""},
        HttpResponse{200, R"({"access_token":"a"})"},
        HttpResponse{200, R"({"access_token":"a","refresh_token":1})"},
        HttpResponse{200, R"({"access_token":"a","refresh_token":"b","expires_in":"1"})"},
    };
    store(sessionEndingIn(0));
    const auto before = stored();
    for (const auto& failure : failures) {
        tokens.clear();
        http.calls.clear();
        askForToken();
        answer(0, failure);
        ASSERT_EQ(http.calls.size(), 2u);
        EXPECT_EQ(urlOf(1), "https://project.example/auth/v1/signup");
        EXPECT_THAT(tokens, IsEmpty());
        answer(1, failure);
        EXPECT_THAT(tokens, ElementsAre(std::nullopt));
        EXPECT_EQ(stored(), before);
    }
    askForToken();
    answer(2, std::nullopt);
    answer(3, 200, reply);
    EXPECT_EQ(tokens.back(), "new");
}

TEST_F(AnonymousAuthTest, aResetForgetsEverythingAndWhatIsUnderWayChangesNothing) {
    store(sessionEndingIn(0));
    askForToken();
    auth->reset();
    time.runPending();
    EXPECT_EQ(secrets.read("com.halverton.orvel.auth", "orvel.auth").status,
              SecretStore::Item::Status::missing);
    askForToken();
    EXPECT_EQ(urlOf(1), "https://project.example/auth/v1/signup");
    answer(0, 200, R"({"access_token":"late","refresh_token":"b"})");
    EXPECT_THAT(tokens, ElementsAre("late"));
    EXPECT_EQ(stored(), "");
    answer(1, 200, reply);
    EXPECT_THAT(tokens, ElementsAre("late", "new"));
    askForToken();
    EXPECT_EQ(tokens.back(), "new");
}

TEST_F(AnonymousAuthTest, aStoredItemThatIsNoSessionCountsAsNone) {
    for (const auto* item : {"", "{}", "\xff", R"({"accessToken":"a","refreshToken":"b"})"}) {
        http.calls.clear();
        store(item);
        askForToken();
        EXPECT_EQ(urlOf(0), "https://project.example/auth/v1/signup") << item;
    }
}

TEST_F(AnonymousAuthTest, withoutAProjectItAsksNobody) {
    store(sessionEndingIn(3600));
    defaults.set("relayURL", "ws://localhost:4000");
    askForToken();
    EXPECT_THAT(tokens, ElementsAre(std::nullopt));
    EXPECT_THAT(http.calls, IsEmpty());
}

TEST_F(AnonymousAuthTest, theAccountIsTheApplications) {
    const auto named = AnonymousAuth::make(queue, cloud, http, secrets, "com.example.app");
    named->accessToken([](const auto&) {});
    time.runPending();
    answer(0, 200, reply);
    EXPECT_NE(stored("com.example.app.auth"), "");
    EXPECT_EQ(stored(), "");
}

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
    answer(1, 200, reply);
    ASSERT_EQ(http.calls.size(), 3u);
    EXPECT_EQ(http.calls[2].request.headers[1].second, "Bearer new");
    EXPECT_THAT(lists, IsEmpty());
    answer(2, 401, "");
    EXPECT_THAT(lists, ElementsAre(std::vector{stun}));
    EXPECT_EQ(http.calls.size(), 3u);

    ask();  // the next call may try again
    answer(3, 401, "");
    answer(4, 200, reply);
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
