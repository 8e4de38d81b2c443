#include "Relay/RelayServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OrvelKit/Base/FakeDefaults.h"
#include "OrvelKit/Base/MemorySecretStore.h"
#include "OrvelKit/Relay/IceServerProvider.h"
#include "OrvelKit/Relay/Inbox.h"
#include "OrvelKit/Relay/RealtimeChannel.h"

using namespace std::chrono_literals;

namespace orvel {
namespace {

// A relay on the loopback interface, and clients of the kind that agent and phone have.
struct RelayServerTest : testing::Test {
    SerialQueue relayQueue{"relay"}, realtimeQueue{"orvel.realtime"}, accountQueue{"orvel.account"};
    RelayServer::Options options;
    std::unique_ptr<RelayServer> relay;
    std::uint16_t port = 0;

    RelayServerTest() {
        options.refusalDelay = 1ms;
        options.realtime.refusalDelay = 1ms;
    }
    ~RelayServerTest() override {
        on(relayQueue, [this] { relay.reset(); });
    }

    static void on(SerialQueue& queue, const std::function<void()>& task) {
        Inbox<bool> done;
        queue.post([&] {
            task();
            done.put(true);
        });
        ASSERT_TRUE(done.take());
    }
    void start() {
        on(relayQueue, [this] {
            options.port = port;
            relay = std::make_unique<RelayServer>(relayQueue, options);
            port = relay->port();
        });
    }
    RelayProject project(const std::string& key = "local") const {
        return RelayProject::from("http://127.0.0.1:" + std::to_string(port), key).value();
    }

    // One subscription, and what it tells.
    struct Subscription {
        std::shared_ptr<RealtimeChannel> channel;
        std::shared_ptr<Inbox<std::string>> told = std::make_shared<Inbox<std::string>>();

        std::string next() const { return told->take().value_or("nothing"); }
        void send(std::string_view json) const {
            const auto bytes = bytesOf(json);
            channel->send(Bytes(bytes.begin(), bytes.end()));
        }
    };
    Subscription subscribe(const std::string& topic, const std::string& key = "local") {
        Subscription made{RealtimeChannel::make(realtimeQueue, systemWebSockets({}),
                                                RelayConfig(project(key)), topic)};
        made.channel->onJoined = [told = made.told](bool joined) {
            told->put(joined ? "joined" : "left");
        };
        made.channel->onBroadcast = [told = made.told](const Bytes& payload) {
            told->put(std::string(textOf(payload)));
        };
        made.channel->start();
        return made;
    }
};

TEST_F(RelayServerTest, carriesBroadcastsBetweenThoseOnATopic) {
    start();
    const auto agent = subscribe("orvel-a"), phone = subscribe("orvel-a"), other = subscribe("b");
    for (const auto* each : {&agent, &phone, &other})
        EXPECT_EQ(each->next(), "joined");
    phone.send(R"({"n":1,"text":"ç"})");
    phone.send(R"({"n":2})");
    EXPECT_EQ(agent.next(), R"({"n":1,"text":"ç"})");
    EXPECT_EQ(agent.next(), R"({"n":2})");
    agent.send(R"({"n":3})");
    EXPECT_EQ(phone.next(), R"({"n":3})");  // and not what it sent itself
    phone.send(R"({"long":")" + std::string(300'000, 'a') + R"("})");  // dropped
    phone.send(R"({"n":4})");
    EXPECT_EQ(agent.next(), R"({"n":4})");
    other.send(R"({"n":5})");
    agent.channel->stop();
    EXPECT_EQ(agent.next(), "left");
    EXPECT_FALSE(phone.told->take(0s) || other.told->take(0s));
}

TEST_F(RelayServerTest, channelsComeBackAfterARestart) {
    start();
    const auto agent = subscribe("orvel-a");
    EXPECT_EQ(agent.next(), "joined");
    on(relayQueue, [this] { relay.reset(); });
    EXPECT_EQ(agent.next(), "left");
    agent.send(R"({"late":1})");  // waits
    start();
    const auto phone = subscribe("orvel-a");
    EXPECT_EQ(agent.next(), "joined");
    EXPECT_EQ(phone.next(), "joined");
}

TEST_F(RelayServerTest, nobodyComesInWithAnotherKey) {
    start();
    const auto stranger = subscribe("orvel-a", "guessed"), agent = subscribe("orvel-a");
    EXPECT_EQ(agent.next(), "joined");
    EXPECT_FALSE(stranger.told->take(0s));
    FakeDefaults defaults;
    MemorySecretStore secrets;
    const OrvelCloud cloud(defaults, project("guessed"));
    const auto http = makeSystemHttpClient(accountQueue, {});
    Inbox<bool> tokens;
    AnonymousAuth::make(accountQueue, cloud, *http, secrets)->accessToken([&](const auto& token) {
        tokens.put(token.has_value());
    });
    EXPECT_EQ(tokens.take(), false);
}

TEST_F(RelayServerTest, givesAccountsAndTurnCredentials) {
    options.ice = {{"turn:127.0.0.1:3478"}, "secret", 3600s};
    options.accounts.tokenLife = 30s;  // ends soon enough to be refreshed at once
    start();
    FakeDefaults defaults;
    MemorySecretStore secrets;
    const OrvelCloud cloud(defaults, project());
    const auto http = makeSystemHttpClient(accountQueue, {});
    const auto auth = AnonymousAuth::make(accountQueue, cloud, *http, secrets);
    Inbox<std::optional<std::string>> tokens;
    std::set<std::optional<std::string>> seen;
    for (int i = 0; i < 3; ++i) {  // a sign-up, two refreshes
        auth->accessToken([&](auto token) { tokens.put(std::move(token)); });
        seen.insert(tokens.take().value());
    }
    EXPECT_EQ(seen.size(), 3u);
    EXPECT_FALSE(seen.count(std::nullopt));

    const auto provider = IceServerProvider::make(accountQueue, cloud, *http, auth);
    Inbox<std::vector<IceServer>> lists;
    const auto ask = [&] {
        provider->servers([&](auto servers) { lists.put(std::move(servers)); });
        return lists.take().value();
    };
    const auto servers = ask();
    ASSERT_EQ(servers.size(), 2u);
    EXPECT_EQ(servers[0], IceServerProvider::fallback()[0]);
    EXPECT_THAT(servers[1].urls, testing::ElementsAre("turn:127.0.0.1:3478"));
    const auto username = servers[1].username.value();
    const WallTime until{std::chrono::seconds(std::stoll(username))};
    EXPECT_LT(until - accountQueue.wallTime(), 3601s);
    EXPECT_GT(until - accountQueue.wallTime(), 3500s);
    EXPECT_EQ(
        servers[1].credential,
        TurnCredentials::make("secret", username.substr(username.find(':') + 1), until).credential);

    // A relay that was started anew knows nobody: a new user, without anybody noticing.
    on(relayQueue, [this] { relay.reset(); });
    options.accounts.tokenLife = 3600s;
    start();
    const auto again = IceServerProvider::make(accountQueue, cloud, *http, auth);
    again->servers([&](auto renewed) { lists.put(std::move(renewed)); });
    EXPECT_EQ(lists.take().value().size(), 2u);
}

TEST_F(RelayServerTest, answersRequestsAsTheServiceDoes) {
    start();
    const auto http = makeSystemHttpClient(accountQueue, {});
    struct Row {
        const char *method, *target;
        std::vector<std::pair<std::string, std::string>> headers;
        const char* body;
        int status;
        const char* answer;
    };
    const std::vector<std::pair<std::string, std::string>> key{{"apikey", "local"}};
    const Row rows[] = {
        {"GET", "/", {}, "", 200, "orvel-relay"},
        {"POST", "/other", key, "", 404, ""},
        {"GET", "/auth/v1/signup", key, "", 405, ""},
        {"POST", "/auth/v1/signup", {}, "{}", 401, "No API key found in request"},
        {"POST", "/auth/v1/signup", {{"apikey", "loca"}}, "{}", 401, "Invalid API key"},
        {"POST", "/auth/v1/signup", key, "", 400, "bad_json"},
        {"POST", "/auth/v1/signup", key, "{}", 200, "\"is_anonymous\":true"},
        {"POST", "/auth/v1/token?grant_type=password", key, "{}", 400, "validation_failed"},
        {"POST", "/auth/v1/token?grant_type=refresh_token", key, "{}", 400, "validation_failed"},
        {"POST", "/auth/v1/token?grant_type=refresh_token", key, R"({"refresh_token":"a"})", 400,
         "refresh_token_not_found"},
        {"OPTIONS", "/functions/v1/tarno-turn", {}, "", 200, ""},
        {"OPTIONS", "/auth/v1/signup", {}, "", 200, ""},
        {"OPTIONS", "/auth/v1/token?grant_type=refresh_token", {}, "", 200, ""},
        {"POST", "/functions/v1/tarno-turn", key, "", 401, "Missing authorization header"},
        {"POST",
         "/functions/v1/tarno-turn",
         {key[0], {"Authorization", "Bearer x"}},
         "",
         401,
         "Invalid JWT"},
        {"GET", "/realtime/v1/websocket?apikey=local&vsn=1.0.0", {}, "", 426, ""},
    };
    Inbox<std::optional<HttpResponse>> responses;
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.method) + " " + row.target);
        http->send({row.method,
                    Url::parse("http://127.0.0.1:" + std::to_string(port) + row.target).value(),
                    row.headers, row.body, 10s},
                   [&](auto response) { responses.put(std::move(response)); });
        const auto response = responses.take().value();
        ASSERT_TRUE(response);
        EXPECT_EQ(response->status, row.status);
        EXPECT_THAT(response->body, testing::HasSubstr(row.answer));
    }
}

// What an ordinary client does not do, message by message.
struct RawClientTest : RelayServerTest {
    Inbox<std::string> told;
    std::unique_ptr<WebSocket> socket;

    ~RawClientTest() override {
        on(realtimeQueue, [this] { socket.reset(); });
    }
    void open(const std::string& query = "?apikey=local&vsn=1.0.0") {
        on(realtimeQueue, [&] {
            const auto url = "ws://127.0.0.1:" + std::to_string(port) + "/realtime/v1/websocket";
            socket = systemWebSockets({})(realtimeQueue, Url::parse(url + query).value(),
                                          {[this](auto message) { told.put(message); },
                                           [this](auto reason) { told.put("end " + reason); }});
        });
    }
    void say(const std::string& text) {
        on(realtimeQueue, [&] { socket->send(text); });
    }
    std::string next() { return told.take().value_or("nothing"); }
    std::string answerTo(const std::string& text) {
        say(text);
        return next();
    }
};

constexpr const char* joinT =
    R"({"topic":"realtime:T","event":"phx_join","ref":"1","join_ref":"1","payload":{}})";
constexpr const char* joined = R"({"topic":"realtime:T","event":"phx_reply","ref":"1",)"
                               R"("payload":{"status":"ok","response":{"postgres_changes":[]}}})";

TEST_F(RawClientTest, isAnsweredAsTheServiceDoes) {
    options.realtime.maxChannels = 2;
    start();
    open();
    // Nothing at all is the answer to these.
    for (const auto* text : {"", "[]", "{}", R"({"topic":"phoenix","event":"heartbeat","ref":"1"})",
                             R"({"topic":"phoenix","event":"heartbeat","payload":{}})"}) {
        say(text);
    }
    const std::pair<const char*, const char*> rows[] = {
        {R"({"topic":"phoenix","event":"heartbeat","ref":null,"payload":{}})",
         R"({"topic":"phoenix","event":"phx_reply","ref":null,)"
         R"("payload":{"status":"ok","response":{}}})"},
        {R"({"topic":"realtime:T","event":"broadcast","ref":"9","payload":{}})",
         R"({"topic":"realtime:T","event":"phx_reply","ref":"9",)"
         R"("payload":{"status":"error","response":{"reason":"unmatched topic"}}})"},
        {R"({"topic":"T","event":"phx_join","ref":"1","payload":{}})",
         R"({"topic":"T","event":"phx_reply","ref":"1",)"
         R"("payload":{"status":"error","response":{"reason":"unmatched topic"}}})"},
        {R"({"topic":"realtime:T","event":"phx_join","ref":"1","payload":{"access_token":"x"}})",
         R"({"topic":"realtime:T","event":"phx_reply","ref":"1","payload":{"status":"error",)"
         R"("response":{"reason":"MalformedJWT: The token provided is not a valid JWT"}}})"},
        {joinT, joined},
        {R"({"topic":"realtime:U","event":"phx_join","ref":"2","join_ref":"2","payload":)"
         R"({"access_token":"local","config":{"broadcast":{"self":true,"ack":true}}}})",
         R"({"topic":"realtime:U","event":"phx_reply","ref":"2",)"
         R"("payload":{"status":"ok","response":{"postgres_changes":[]}}})"},
        {R"({"topic":"realtime:V","event":"phx_join","ref":"3","payload":{}})",
         R"({"topic":"realtime:V","event":"phx_reply","ref":"3","payload":{"status":"error",)"
         R"("response":{"reason":"ChannelRateLimitReached: Too many channels"}}})"},
        {R"({"topic":"realtime:U","event":"broadcast","ref":"4","payload":{"b":[1.0],"a":null}})",
         R"({"topic":"realtime:U","event":"broadcast","ref":null,"payload":{"b":[1],"a":null}})"},
    };
    for (const auto& [text, answer] : rows) {
        EXPECT_EQ(answerTo(text), answer) << text;
    }
    EXPECT_EQ(next(), R"({"topic":"realtime:U","event":"phx_reply","ref":"4",)"
                      R"("payload":{"status":"ok","response":{}}})");

    // A second join: the answer first, then the end of the first one.
    EXPECT_EQ(answerTo(R"({"topic":"realtime:T","event":"phx_join","ref":"5","join_ref":"5",)"
                       R"("payload":{"config":{"presence":{"enabled":true}}}})"),
              R"({"topic":"realtime:T","event":"phx_reply","ref":"5",)"
              R"("payload":{"status":"ok","response":{"postgres_changes":[]}}})");
    EXPECT_EQ(next(), R"({"topic":"realtime:T","event":"phx_close","ref":"1","payload":{}})");
    EXPECT_EQ(next(), R"({"topic":"realtime:T","event":"presence_state","ref":null,"payload":{}})");
    EXPECT_EQ(answerTo(R"({"topic":"realtime:T","event":"phx_leave","ref":"6","payload":{}})"),
              R"({"topic":"realtime:T","event":"phx_reply","ref":"6",)"
              R"("payload":{"status":"ok","response":{}}})");
    EXPECT_EQ(next(), R"({"topic":"realtime:T","event":"phx_close","ref":"5","payload":{}})");
}

TEST_F(RawClientTest, maySpeakInArrays) {
    start();
    open("?apikey=local&vsn=2.0.0");
    for (const auto* text : {"{}", "[]", R"([null,"1","realtime:T","phx_join"])"})
        say(text);
    EXPECT_EQ(
        answerTo(R"(["1","1","realtime:T","phx_join",{"config":{"broadcast":{"self":true}}}])"),
        R"(["1","1","realtime:T","phx_reply",{"status":"ok","response":{"postgres_changes":[]}}])");
    EXPECT_EQ(answerTo(R"([null,"2","phoenix","heartbeat",{}])"),
              R"([null,"2","phoenix","phx_reply",{"status":"ok","response":{}}])");
    EXPECT_EQ(answerTo(R"(["1","3","realtime:T","broadcast",{"a":1}])"),
              R"([null,null,"realtime:T","broadcast",{"a":1}])");
    EXPECT_EQ(answerTo(R"(["1","4","realtime:T","phx_leave",{}])"),
              R"(["1","4","realtime:T","phx_reply",{"status":"ok","response":{}}])");
    EXPECT_EQ(next(), R"(["1","1","realtime:T","phx_close",{}])");
}

TEST(RealtimeHub, readsBinaryBroadcastsAndNothingLikeThem) {
    struct Client : RealtimeHub::Client {
        std::vector<std::string> told;
        void send(const std::string& text) override { told.push_back(text); }
    };
    VirtualTime time;
    SerialQueue queue("relay", time);
    RealtimeHub hub(queue, {}, [](const auto&) { return true; });
    const auto sender = std::make_shared<Client>(), receiver = std::make_shared<Client>();
    hub.came(sender, RealtimeHub::Serializer::arrays);
    hub.came(receiver, RealtimeHub::Serializer::objects);
    hub.received(*sender, R"(["1","1","realtime:T","phx_join",{}])", false);
    hub.received(*receiver, joinT, true);  // objects may come as binary, too
    EXPECT_EQ(receiver->told.size(), 1u);
    receiver->told.clear();

    using namespace std::string_literals;
    const auto push = "\x03\x01\x01\x0a\x06\x00\x01"s + "12realtime:Tsignal{\"n\": 1}";
    for (std::size_t length = 0; length < push.size(); ++length)
        hub.received(*sender, push.substr(0, length), true);
    auto other = push;
    other[0] = 4;
    hub.received(*sender, other, true);
    other = push;
    other[6] = 0;  // a payload that is not JSON
    hub.received(*sender, other, true);
    EXPECT_TRUE(receiver->told.empty());
    hub.received(*sender, push, true);
    EXPECT_THAT(receiver->told,
                testing::ElementsAre(
                    R"({"topic":"realtime:T","event":"broadcast","ref":null,)"
                    R"("payload":{"type":"broadcast","event":"signal","payload":{"n":1}}})"));
}

TEST_F(RawClientTest, isRefusedOrSentAwayAsTheServiceDoes) {
    options.realtime.messagesPerSecond = 0.05;  // three in a minute
    start();
    open("?apikey=other&vsn=1.0.0");
    EXPECT_EQ(next(), "end refused with status 401");
    open("?apikey=local&vsn=3.0.0");
    EXPECT_EQ(next(), "end refused with status 403");
    open();
    EXPECT_EQ(answerTo(joinT), joined);
    for (int i = 0; i < 4; ++i)
        say(R"({"topic":"realtime:T","event":"broadcast","ref":"2","payload":{}})");
    EXPECT_EQ(next(), R"({"topic":"realtime:T","event":"system","ref":null,"payload":)"
                      R"({"extension":"system","status":"error",)"
                      R"("message":"Too many messages per second"}})");
    EXPECT_EQ(next(), R"({"topic":"realtime:T","event":"phx_close","ref":"1","payload":{}})");
    on(relayQueue, [this] { relay.reset(); });
    EXPECT_EQ(next(), "end closed with code 1012");
    options.idleTime = 0s;
    start();
    open();
    EXPECT_EQ(next(), "end closed with code 1000");
}

TEST(RelayAccounts, renewEachTokenOnceAndForgiveWhatGotLost) {
    VirtualTime time;
    SerialQueue queue("relay", time);
    RelayAccounts accounts(queue, {3600s, 2, 3, 10s});
    const auto member = [](const RelayAccounts::Reply& reply, const char* name) {
        const JsonDocument document(reply.body);
        const auto found = document.root().member(name);
        return std::string(found ? found->string().value_or("") : "");
    };
    const auto refresh = [&](const std::string& token) {
        return accounts.refresh(R"({"refresh_token":")" + token + "\"}");
    };
    const auto first = accounts.signUp("a", "{}");
    EXPECT_EQ(first.status, 200);
    const auto access = member(first, "access_token"), r1 = member(first, "refresh_token");
    EXPECT_TRUE(accounts.userOf(access));
    time.advance(3600s - 1ns);
    EXPECT_TRUE(accounts.userOf(access));
    time.advance(1ns);
    EXPECT_FALSE(accounts.userOf(access));
    EXPECT_FALSE(accounts.userOf(""));

    const auto r2 = member(refresh(r1), "refresh_token");
    EXPECT_NE(r2, r1);
    time.advance(1h);
    EXPECT_EQ(member(refresh(r1), "refresh_token"), r2) << "the predecessor brings the current one";
    const auto r3 = member(refresh(r2), "refresh_token");
    EXPECT_EQ(member(refresh(r1), "refresh_token"), r3) << "an older one soon afterwards";
    time.advance(10s);
    const auto reused = refresh(r1);
    EXPECT_EQ(reused.status, 400);
    EXPECT_EQ(member(reused, "error_code"), "refresh_token_already_used");
    EXPECT_EQ(member(refresh(r3), "error_code"), "refresh_token_not_found") << "revoked";

    // At most two users, and three sign-ups an hour from one address.
    const auto oldest = member(accounts.signUp("b", "{}"), "access_token");
    EXPECT_TRUE(accounts.userOf(oldest));
    EXPECT_EQ(accounts.signUp("b", "{}").status, 200);
    EXPECT_EQ(accounts.signUp("b", "{}").status, 200);
    EXPECT_FALSE(accounts.userOf(oldest));
    EXPECT_EQ(member(accounts.signUp("b", "{}"), "error_code"), "over_request_rate_limit");
    EXPECT_EQ(accounts.signUp("c", "{}").status, 200);
    time.advance(1h);
    EXPECT_EQ(accounts.signUp("b", "{}").status, 200);
}

TEST(TurnCredentials, areWhatCoturnComputes) {
    // echo -n 1731718800:u | openssl dgst -sha1 -hmac north -binary | base64
    const auto made = TurnCredentials::make("north", "u", WallTime(1731718800s));
    EXPECT_EQ(made.username, "1731718800:u");
    EXPECT_EQ(made.credential, "jQH+vvQZn8L0IYkyxEo6givJ7Tc=");
    EXPECT_EQ((IceFunction{{"turn:a"}, "", 60s}.answer("u", WallTime())),
              R"({"iceServers":[],"ttl":60})");
}

}  // namespace
}  // namespace orvel
