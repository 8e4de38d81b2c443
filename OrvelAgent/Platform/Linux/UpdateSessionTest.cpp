#include "OrvelAgent/Platform/Linux/UpdateSession.h"

#include <gtest/gtest.h>

#include "OrvelKit/Base/FakeDefaults.h"
#include "OrvelKit/Relay/FakeHttpClient.h"
#include "Tests/Support/TemporaryFolder.h"

using namespace std::chrono_literals;

namespace orvel {
namespace {

struct NoInstaller final : PackageInstaller {
    std::optional<Identity> identify(const std::string&) override { return std::nullopt; }
    std::optional<std::string> installedVersion(const std::string&) override { return installed; }
    void install(const std::string&, std::function<void(Outcome)>) override {}

    std::optional<std::string> installed;
};

// Each fetch has a client of its own; all of them are this one.
struct Borrowed final : HttpClient {
    explicit Borrowed(HttpClient& lender) : client(lender) {}
    void send(HttpRequest request, Completion completion) override {
        client.send(std::move(request), std::move(completion));
    }
    HttpClient& client;
};

std::string feedOf(const std::string& version) {
    return "<rss xmlns:s=\"http://www.andymatuschak.org/xml-namespaces/sparkle\"><channel><item>"
           "<s:version>" +
           version +
           "</s:version><enclosure url=\"https://h/p\" length=\"1\" type=\"t\" s:os=\"l\"/>" +
           "</item></channel></rss>";
}

// A day passes in microseconds; the feed is what the test says.
struct UpdateSessionTest : testing::Test {
    VirtualTime time;
    SerialQueue queue{"orvel.updates", time};
    TemporaryFolder folder;
    FakeDefaults defaults;
    FakeHttpClient http;
    NoInstaller installer;
    double random = 0;
    std::vector<std::string> events;
    std::shared_ptr<UpdateSession> session = make();

    std::shared_ptr<UpdateSession> make() {
        return std::make_shared<UpdateSession>(
            UpdateSession::Parts{queue, defaults, installer,
                                 [this] { return std::make_unique<Borrowed>(http); },
                                 [this] { return random; }},
            UpdateSetup{Url::parse("https://h/feed").value(),
                        Bytes(32, 1),
                        "1.0",
                        "orvel-agent",
                        {"l", "t", "amd64", "6"},
                        folder / "updates"},
            UpdateSession::Outlet{[](const UpdateState&) {},
                                  [this](const AvailableUpdate& update, bool asked) {
                                      events.push_back((asked ? "asked " : "found ") +
                                                       update.version);
                                  },
                                  [this](const AvailableUpdate&) { events.push_back("attended"); },
                                  [this] { events.push_back("finished"); }, [](bool) {}});
    }
    void run(void (UpdateSession::*action)()) {
        queue.post([this, action] { ((*session).*action)(); });
        time.runPending();
    }
    void start(bool automatic = true) {
        queue.post([this, automatic] { session->start(automatic); });
        time.runPending();
    }
    // Everything asked since the last call gets this feed; nullopt: no answer. How many asked.
    std::size_t answer(const std::optional<std::string>& feed) {
        auto calls = std::exchange(http.calls, {});
        for (auto& call : calls) {
            queue.post([&call, &feed] {
                if (feed) call.request.onBody(bytesOf(*feed));
                call.completion(feed ? std::optional(HttpResponse{200, ""}) : std::nullopt);
            });
            time.runPending();
        }
        return calls.size();
    }
    // How many checks a time of so many days sees.
    std::size_t checksIn(int days, const std::optional<std::string>& feed) {
        std::size_t checks = 0;
        for (int hour = 0; hour < 24 * days; ++hour) {
            time.advance(1h);
            checks += answer(feed);
        }
        return checks;
    }
};

TEST_F(UpdateSessionTest, looksOnceADayALittleLaterEachTime) {
    start();
    time.advance(59s);
    EXPECT_EQ(answer(feedOf("1.0")), 0u);
    time.advance(1s);
    EXPECT_EQ(answer(feedOf("1.0")), 1u);
    EXPECT_EQ(checksIn(1, feedOf("1.0")), 1u);
    random = 0.9;  // 26 hours, seen every hour, from the next check on
    EXPECT_EQ(checksIn(26, feedOf("1.0")), 24u);
    // Another run goes on where this one was; a user who turns the clock back is not left alone.
    session = make();
    start();
    EXPECT_EQ(checksIn(1, feedOf("1.0")), 0u);
    EXPECT_EQ(checksIn(1, feedOf("1.0")), 1u);
    time.setWallTime(time.wallTime() - 24h * 300);
    EXPECT_EQ(checksIn(1, feedOf("1.0")), 1u);
    EXPECT_TRUE(events.empty());
}

TEST_F(UpdateSessionTest, asksAgainSoonWhereNobodyAnsweredAndNotAtAllWhenItShallNot) {
    start();
    EXPECT_EQ(checksIn(1, std::nullopt), 24u);
    EXPECT_EQ(checksIn(1, "no feed"), 1u);
    queue.post([this] { session->setAutomatic(false); });
    EXPECT_EQ(checksIn(3, feedOf("1.0")), 0u);
    run(&UpdateSession::check);
    EXPECT_EQ(answer(feedOf("1.0")), 1u);
    for (const auto* foreign : {"", "yesterday", "2026-13-41T00:00:00Z", "99999-01-01T00:00:00Z",
                                "2999-01-01T00:00:00Z"}) {
        defaults.set("SULastCheckTime", foreign);
        queue.post([this] { session->setAutomatic(true); });
        EXPECT_EQ(checksIn(1, feedOf("1.0")), 1u) << foreign;
    }
}

TEST_F(UpdateSessionTest, tellsOfEachVersionOnceUntilSomebodyAnswers) {
    start();
    EXPECT_EQ(checksIn(3, feedOf("2.0")), 3u);
    EXPECT_EQ(checksIn(1, feedOf("2.1")), 1u);
    EXPECT_EQ(checksIn(1, feedOf("1.0")), 1u);  // withdrawn: what was told stands
    EXPECT_EQ(std::exchange(events, {}), (std::vector<std::string>{"found 2.0", "found 2.1"}));
    run(&UpdateSession::check);  // shows what there is
    EXPECT_EQ(http.calls.size(), 0u);
    EXPECT_EQ(checksIn(3, feedOf("2.2")), 0u);  // somebody is looking
    run(&UpdateSession::dismiss);
    EXPECT_EQ(checksIn(1, feedOf("2.2")), 1u);
    run(&UpdateSession::skip);
    EXPECT_EQ(std::exchange(events, {}),
              (std::vector<std::string>{"attended", "finished", "found 2.2", "finished"}));
    EXPECT_EQ(checksIn(2, feedOf("2.2")), 2u);  // skipped
    EXPECT_TRUE(events.empty());
    run(&UpdateSession::check);  // but not for who asks
    answer(feedOf("2.2"));
    EXPECT_EQ(std::exchange(events, {}), (std::vector<std::string>{"asked 2.2", "attended"}));
    run(&UpdateSession::dismiss);
    EXPECT_EQ(checksIn(2, feedOf("2.3")), 1u);
    EXPECT_EQ(events, (std::vector<std::string>{"finished", "found 2.3"}));
}

TEST_F(UpdateSessionTest, comparesWithWhatIsInstalledNotWithWhatRuns) {
    start();
    installer.installed = "2.0-1";  // by hand, while this ran
    EXPECT_EQ(checksIn(2, feedOf("2.0-1")), 2u);
    EXPECT_TRUE(events.empty());
    EXPECT_EQ(checksIn(1, feedOf("2.0-2")), 1u);
    EXPECT_EQ(events, std::vector<std::string>{"found 2.0-2"});
}

TEST_F(UpdateSessionTest, aCheckThatIsUnderWayAnswersWhoAsksThen) {
    start();
    time.advance(1min);
    ASSERT_EQ(http.calls.size(), 1u);
    run(&UpdateSession::check);
    EXPECT_EQ(http.calls.size(), 1u);
    answer(feedOf("2.0"));
    EXPECT_EQ(events, (std::vector<std::string>{"asked 2.0", "attended"}));
}

}  // namespace
}  // namespace orvel
