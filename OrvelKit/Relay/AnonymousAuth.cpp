#include "OrvelKit/Relay/AnonymousAuth.h"

#include "OrvelKit/Base/JsonForm.h"
#include "OrvelKit/Secure/Crypto.h"

namespace orvel {

namespace {

// What the Auth service answers to a sign-up and to a refresh.
struct TokenReply {
    std::string accessToken, refreshToken;
    std::optional<double> expiresIn, expiresAt;  // seconds; since 1970-01-01 00:00:00 UTC
};

struct RefreshRequest {
    std::string refreshToken;
};

}  // namespace

template <>
struct JsonForm<AnonymousAuth::Session> {
    static void members(auto& json, auto& session) {
        json("accessToken", session.accessToken);
        json("refreshToken", session.refreshToken);
        json("expiresAt", session.expiresAt);
    }
};

template <>
struct JsonForm<TokenReply> {
    static void members(auto& json, auto& reply) {
        json("access_token", reply.accessToken);
        json("refresh_token", reply.refreshToken);
        json("expires_in", reply.expiresIn);
        json("expires_at", reply.expiresAt);
    }
};

template <>
struct JsonForm<RefreshRequest> {
    static void members(auto& json, auto& request) { json("refresh_token", request.refreshToken); }
};

namespace {

double secondsSince1970(WallTime time) {
    return std::chrono::duration<double>(time.time_since_epoch()).count();
}

std::optional<AnonymousAuth::Session> sessionFrom(const std::optional<HttpResponse>& response,
                                                  double now) {
    if (!response || response->status != 200) return std::nullopt;
    try {
        auto reply = decodeJson<TokenReply>(response->body);
        const double expiresAt = reply.expiresAt.value_or(now + reply.expiresIn.value_or(3600));
        return AnonymousAuth::Session{std::move(reply.accessToken), std::move(reply.refreshToken),
                                      expiresAt};
    } catch (const JsonError&) {
        return std::nullopt;
    }
}

}  // namespace

std::shared_ptr<AnonymousAuth> AnonymousAuth::make(SerialQueue& queue, const OrvelCloud& cloud,
                                                   HttpClient& http, SecretStore& secrets,
                                                   const std::optional<std::string>& bundle) {
    std::shared_ptr<AnonymousAuth> auth(new AnonymousAuth(queue, cloud, http, secrets, bundle));
    queue.post([auth] {
        auth->queue.assertCurrent();
        auth->load();
    });
    return auth;
}

AnonymousAuth::AnonymousAuth(SerialQueue& authQueue, const OrvelCloud& orvelCloud,
                             HttpClient& httpClient, SecretStore& secretStore,
                             const std::optional<std::string>& bundle)
    : queue(authQueue),
      cloud(orvelCloud),
      http(httpClient),
      secrets(secretStore),
      account(bundle.value_or("orvel") + ".auth") {}

void AnonymousAuth::load() {
    auto item = secrets.read(service, account);
    const WipeAtEnd wipeItem(item.data);
    if (item.status != SecretStore::Item::Status::found) return;
    try {
        session = decodeJson<Session>(textOf(item.data));
    } catch (const JsonError&) {
        // No session; the next one replaces the item.
    }
}

void AnonymousAuth::accessToken(TokenHandler handler) {
    queue.post([self = shared_from_this(), handler = std::move(handler)]() mutable {
        self->queue.assertCurrent();
        self->obtain(std::move(handler));
    });
}

void AnonymousAuth::reset() {
    queue.post([self = shared_from_this()] {
        self->queue.assertCurrent();
        self->session.reset();
        self->underWay.reset();
        self->secrets.remove(service, self->account);
    });
}

void AnonymousAuth::obtain(TokenHandler handler) {
    const auto project = cloud.project();
    if (!project) return handler(std::nullopt);
    if (session && secondsSince1970(queue.wallTime()) < session->expiresAt - expiryMargin) {
        return handler(session->accessToken);
    }
    if (underWay) return underWay->push_back(std::move(handler));
    underWay = std::make_shared<std::vector<TokenHandler>>();
    underWay->push_back(std::move(handler));
    if (session) {
        refresh(*project, underWay);
    } else {
        signUp(*project, underWay);
    }
}

void AnonymousAuth::refresh(const RelayProject& project, Waiting waiting) {
    request(project, "/auth/v1/token?grant_type=refresh_token",
            encodeJson(RefreshRequest{session->refreshToken}),
            [this, project, waiting = std::move(waiting)](const std::optional<Session>& obtained) {
                queue.assertCurrent();
                if (!obtained) return signUp(project, waiting);
                finish(waiting, obtained);
            });
}

void AnonymousAuth::signUp(const RelayProject& project, Waiting waiting) {
    request(project, "/auth/v1/signup", "{}",
            [this, waiting = std::move(waiting)](const std::optional<Session>& obtained) {
                queue.assertCurrent();
                finish(waiting, obtained);
            });
}

void AnonymousAuth::request(const RelayProject& project, const char* path, std::string body,
                            std::function<void(const std::optional<Session>&)> completion) {
    auto url = Url::parse(project.baseUrl.text() + path);
    if (!url) return completion(std::nullopt);
    http.send({"POST",
               *std::move(url),
               {{"apikey", project.anonymousKey}, {"Content-Type", "application/json"}},
               std::move(body),
               requestTime},
              [self = shared_from_this(),
               completion = std::move(completion)](std::optional<HttpResponse> response) {
                  self->queue.post([self, completion, response = std::move(response)] {
                      completion(sessionFrom(response, secondsSince1970(self->queue.wallTime())));
                  });
              });
}

void AnonymousAuth::finish(const Waiting& waiting, const std::optional<Session>& obtained) {
    // After a reset the session is another's business: the answer serves those who wait for it.
    if (underWay == waiting) {
        underWay.reset();
        if (obtained) {
            session = obtained;
            Bytes stored;
            append(stored, bytesOf(encodeJson(*obtained)));
            const WipeAtEnd wipeStored(stored);
            secrets.replace(service, account, stored);
        }
    }
    for (const auto& handler : *waiting)
        handler(obtained ? std::optional(obtained->accessToken) : std::nullopt);
}

}  // namespace orvel
