#include "OrvelKit/Relay/OrvelCloud.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "OrvelKit/Base/FakeDefaults.h"
#include "OrvelKit/Relay/IceServerProvider.h"

namespace orvel {
namespace {

TEST(Url, comesApartAndTogether) {
    struct Row {
        const char *text, *scheme, *host, *authority, *port, *target;
    };
    const Row rows[] = {
        {"ws://localhost:4000/socket", "ws", "localhost", "localhost:4000", "4000", "/socket"},
        {"HTTPS://Example.org", "https", "Example.org", "Example.org", "", "/"},
        {"wss://user:secret@[::1]:443/a?b=c#d", "wss", "::1", "[::1]:443", "443", "/a?b=c"},
        {"localhost", "", "", "", "", "/localhost"},
        {"//host/a", "", "host", "host", "", "/a"},
        {"ws://host:99999/", "ws", "host", "host:99999", "99999", "/"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        const auto url = Url::parse(row.text).value();
        EXPECT_EQ(url.scheme(), row.scheme);
        EXPECT_EQ(url.host(), row.host);
        EXPECT_EQ(url.authority(), row.authority);
        EXPECT_EQ(url.port(), row.port);
        EXPECT_EQ(url.target(), row.target);
    }
    for (const auto* text : {"", "http://a b/", "http://[::1", "\n", "http://h/\r\nX: y", "%"}) {
        EXPECT_FALSE(Url::parse(text)) << text;
    }
    EXPECT_EQ(Url::parse("ws://h/p?old#part")->withQuery({{"a", "1&b=2"}, {"c", "é +"}}).text(),
              "ws://h/p?a=1%26b%3D2&c=%C3%A9%20%2B");
}

TEST(RelayConfig, followsFromAProject) {
    const std::pair<const char*, const char*> rows[] = {
        {"http://localhost:4000", "ws://localhost:4000/realtime/v1/websocket"},
        {"https://abc.example.org", "wss://abc.example.org/realtime/v1/websocket"},
        {"https://abc.example.org/some/where/", "wss://abc.example.org/realtime/v1/websocket"},
        {"//abc.example.org", "wss://abc.example.org/realtime/v1/websocket"},
        {"ftp://[::1]:1", "wss://[::1]:1/realtime/v1/websocket"},
    };
    for (const auto& [base, url] : rows) {
        SCOPED_TRACE(base);
        const RelayConfig config(RelayProject::from(base, "key").value());
        EXPECT_EQ(config.url.text(), url);
        EXPECT_EQ(config.apiKey, "key");
    }
    EXPECT_FALSE(RelayProject::from("https://abc.example.org", ""));
    for (const auto* base : {"", "/", "abc.example.org", "https://", "https://a b"}) {
        EXPECT_FALSE(RelayProject::from(base, "key")) << base;
    }
}

const auto project = RelayProject::from("https://abc.example.org/", "key");
const auto projectUrl = *Url::parse("wss://abc.example.org/realtime/v1/websocket");

TEST(OrvelCloud, theUserDefaultsSendSignalingElsewhereAndNothingToTheProject) {
    FakeDefaults defaults;
    const OrvelCloud cloud(defaults, project);
    EXPECT_EQ(cloud.relay(), RelayConfig(projectUrl, "key"));
    EXPECT_EQ(cloud.project()->baseUrl.text(), "https://abc.example.org");

    defaults.set("relayKey", "mine");  // alone it means nothing
    EXPECT_EQ(cloud.relay(), RelayConfig(projectUrl, "key"));
    defaults.set("relayURL", "ws://localhost:4000/socket?x=y");
    const auto own = *Url::parse("ws://localhost:4000/socket?x=y");
    EXPECT_EQ(cloud.relay(), RelayConfig(own, "mine"));
    EXPECT_EQ(cloud.project(), std::nullopt);
    defaults.remove("relayKey");
    EXPECT_EQ(cloud.relay(), RelayConfig(own, "local"));

    // Used as it stands: the mistake shows when it is connected, and nothing goes elsewhere.
    defaults.set("relayURL", "localhost");
    EXPECT_EQ(cloud.relay()->url.text(), "localhost");
    EXPECT_EQ(cloud.project(), std::nullopt);

    for (const auto* text : {"", "ws://a b/"}) {
        defaults.set("relayURL", text);
        EXPECT_EQ(cloud.relay(), RelayConfig(projectUrl, "key")) << text;
        EXPECT_EQ(cloud.project(), project) << text;
    }
    defaults.set("relayURL", true);
    EXPECT_EQ(cloud.relay(), RelayConfig(projectUrl, "key"));

    const OrvelCloud lanOnly(defaults, std::nullopt);
    EXPECT_EQ(lanOnly.relay(), std::nullopt);
    EXPECT_EQ(lanOnly.project(), std::nullopt);
}

TEST(OrvelCloud, theEnvironmentReplacesWhatIsCompiledIn) {
    FakeDefaults defaults;
    setenv("ORVEL_PROJECT_URL", "http://localhost:4000", 1);
    setenv("ORVEL_PROJECT_KEY", "other", 1);
    EXPECT_EQ(OrvelCloud(defaults).project(), RelayProject::from("http://localhost:4000", "other"));
    setenv("ORVEL_PROJECT_URL", "localhost", 1);
    EXPECT_EQ(OrvelCloud(defaults).project(), std::nullopt);
    setenv("ORVEL_PROJECT_URL", "", 1);
    EXPECT_EQ(OrvelCloud(defaults).relay(), std::nullopt);
    unsetenv("ORVEL_PROJECT_URL");
    unsetenv("ORVEL_PROJECT_KEY");
}

}  // namespace
}  // namespace orvel
