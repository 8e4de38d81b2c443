#pragma once

#include <gtest/gtest.h>

#include "OrvelKit/Base/FakeDefaults.h"
#include "OrvelKit/Base/MemorySecretStore.h"
#include "OrvelKit/Relay/AnonymousAuth.h"
#include "OrvelKit/Relay/FakeHttpClient.h"

namespace orvel {

// An account on virtual time, with a project whose answers the test gives.
struct AccountTest : testing::Test {
    using Token = std::optional<std::string>;
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

inline constexpr const char* tokenReply =
    R"({"access_token":"new","refresh_token":"r2","token_type":"bearer"})";

}  // namespace orvel
