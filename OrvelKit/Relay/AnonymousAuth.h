#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "OrvelKit/Base/SecretStore.h"
#include "OrvelKit/Base/SerialQueue.h"
#include "OrvelKit/Relay/HttpClient.h"
#include "OrvelKit/Relay/OrvelCloud.h"

namespace orvel {

// The agent's account at the relay project: an anonymous user, signed up once and kept in the
// secret store. Some of the project's services want its token.
//
// Serialises itself on the queue, where the secret store may make it wait: not one that anything
// urgent runs on. The public functions may be called from any thread; everything given outlives it.
class AnonymousAuth : public std::enable_shared_from_this<AnonymousAuth> {
public:
    struct Session {
        std::string accessToken, refreshToken;
        double expiresAt = 0;  // seconds since 1970-01-01 00:00:00 UTC
        bool operator==(const Session&) const = default;
    };

    static constexpr const char* service = "com.halverton.orvel.auth";
    static constexpr std::chrono::seconds requestTime{8};
    static constexpr double expiryMargin = 60;  // seconds: a token that ends sooner is refreshed

    // `bundle` is the application's identifier, where the system gives it one.
    static std::shared_ptr<AnonymousAuth> make(SerialQueue& queue, const OrvelCloud& cloud,
                                               HttpClient& http, SecretStore& secrets,
                                               const std::optional<std::string>& bundle = {});

    // Answers on the queue, nullopt when there is no project or it gives no token. Refreshes a
    // session that ends, and signs up when there is none or refreshing fails; calls that come
    // meanwhile get the same answer.
    using TokenHandler = UniqueFunction<void(std::optional<std::string>)>;
    void accessToken(TokenHandler handler);

    // Forgets the session, stored one included: for a token that was refused. What is under way
    // serves those who asked before.
    void reset();

private:
    AnonymousAuth(SerialQueue& queue, const OrvelCloud& cloud, HttpClient& http,
                  SecretStore& secrets, const std::optional<std::string>& bundle);

    // Those who wait for one answer.
    using Waiting = std::shared_ptr<std::vector<TokenHandler>>;
    void load() RUNS_ON(queue);
    void obtain(TokenHandler handler) RUNS_ON(queue);
    void refresh(const RelayProject& project, Waiting waiting) RUNS_ON(queue);
    void signUp(const RelayProject& project, Waiting waiting) RUNS_ON(queue);
    void request(const RelayProject& project, const char* path, std::string body,
                 std::function<void(const std::optional<Session>&)> completion) RUNS_ON(queue);
    void finish(const Waiting& waiting, const std::optional<Session>& obtained) RUNS_ON(queue);

    SerialQueue& queue;
    const OrvelCloud& cloud;
    HttpClient& http;
    SecretStore& secrets;
    const std::string account;
    std::optional<Session> session OWNED_BY(queue);
    Waiting underWay OWNED_BY(queue);  // null: nothing is
};

}  // namespace orvel
