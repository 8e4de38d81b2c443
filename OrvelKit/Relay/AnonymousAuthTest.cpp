#include "OrvelKit/Relay/AnonymousAuth.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvelKit/Relay/AccountTestKit.h"

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace orvel {
namespace {

struct AnonymousAuthTest : AccountTest {};

TEST_F(AnonymousAuthTest, signsUpOnceAndKeepsTheSession) {
    askForToken();
    ASSERT_EQ(http.calls.size(), 1u);
    EXPECT_EQ(FakeHttpClient::summary(http.calls[0].request),
              "POST https://project.example/auth/v1/signup 8 s\n"
              "apikey: key\nContent-Type: application/json\n{}");
    askForToken();  // shares the answer
    EXPECT_EQ(http.calls.size(), 1u);
    answer(0, 200, tokenReply);
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
        HttpResponse{201, tokenReply},
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
    answer(3, 200, tokenReply);
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
    answer(1, 200, tokenReply);
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
    answer(0, 200, tokenReply);
    EXPECT_NE(stored("com.example.app.auth"), "");
    EXPECT_EQ(stored(), "");
}

}  // namespace
}  // namespace orvel
