#include "OrvelAgent/Platform/Linux/FeedUpdateDriver.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "OrvelAgent/Platform/Linux/UpdateSiteForTests.h"
#include "OrvelAgent/Update/UpdateSource.h"
#include "OrvelKit/Base/FakeDefaults.h"
#include "OrvelKit/Relay/Inbox.h"
#include "Tests/Support/BackgroundProcess.h"
#include "Tests/Support/TemporaryFolder.h"

using namespace std::chrono_literals;

namespace orvel {
namespace {

namespace fs = std::filesystem;

class SigningKey {
public:
    SigningKey() : key(EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519"), EVP_PKEY_free) {}

    Bytes publicKey() const {
        Bytes bytes(32);
        std::size_t length = bytes.size();
        EXPECT_EQ(EVP_PKEY_get_raw_public_key(key.get(), bytes.data(), &length), 1);
        return bytes;
    }
    std::string sign(const std::string& text) const {
        Bytes signature(64);
        std::size_t length = signature.size();
        const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(),
                                                                              EVP_MD_CTX_free);
        const auto message = bytesOf(text);
        EXPECT_EQ(EVP_DigestSignInit(context.get(), nullptr, nullptr, nullptr, key.get()), 1);
        EXPECT_EQ(EVP_DigestSign(context.get(), signature.data(), &length, message.data(),
                                 message.size()),
                  1);
        return base64(signature);
    }

private:
    const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key;
};

// Fields of one item; what is "" is left out.
struct Offer {
    std::string version = "2.0-1", system = "linux", url, length, signature, more = {};

    std::string feed() const {
        const auto attribute = [](const char* name, const std::string& value) {
            return value.empty() ? "" : std::string(" ") + name + "=\"" + value + "\"";
        };
        return "<rss version=\"2.0\" "
               "xmlns:sparkle=\"http://www.andymatuschak.org/xml-namespaces/sparkle\">"
               "<channel><item><sparkle:version>" +
               version + "</sparkle:version>" + more +
               "<enclosure type=\"application/vnd.debian.binary-package\"" + attribute("url", url) +
               attribute("length", length) + attribute("sparkle:os", system) +
               attribute("sparkle:edSignature", signature) + "/></item></channel></rss>";
    }
};

class FakeInstaller final : public PackageInstaller {
public:
    Identity identity{"orvel-agent", "2.0-1", "amd64"};
    Outcome outcome = Outcome::installed;
    std::vector<std::string> installed;  // contents

    std::optional<Identity> identify(const std::string&) override { return identity; }
    std::optional<std::string> installedVersion(const std::string&) override { return {}; }
    void install(const std::string& path, std::function<void(Outcome)> completion) override {
        installed.push_back(fileText(path));
        completion(outcome);
    }
};

std::string nameOf(const UpdateState& state) {
    static const char* const names[] = {"idle",  "checking",   "up to date", "found",  "loading",
                                        "ready", "installing", "installed",  "opened", "failed"};
    static const char* const reasons[] = {"unreachable", "unreadable", "not genuine", "no room",
                                          "not installed"};
    std::string name = names[state.value.index()];
    if (const auto* failed = std::get_if<UpdateState::Failed>(&state.value)) {
        name += std::string(", ") + reasons[static_cast<int>(failed->reason)];
    }
    return name;
}

struct FeedUpdateDriverTest : testing::Test {
    const TestAuthority authority, another;
    const SigningKey key;
    const std::string package = std::string(300'000, 'p') + "end";
    UpdateSite site{authority};
    TemporaryFolder folder;
    const std::string cache = folder / "cache/updates";
    std::string trusted = folder / "authority.pem";
    FakeDefaults defaults;
    FakeInstaller installer;
    SerialQueue queue{"orvel.updates"};
    SerialQueue main{"main"};
    std::unique_ptr<UpdateDriver> driver;
    Inbox<std::string> states, calls;

    FeedUpdateDriverTest() { std::ofstream(trusted) << authority.certificate(); }
    ~FeedUpdateDriverTest() override {
        onMain([this] { driver.reset(); });
        onQueue([] {});
    }

    Offer offer() const {
        return {.url = site.at("/package.deb"),
                .length = std::to_string(package.size()),
                .signature = key.sign(package)};
    }
    void publish(const Offer& offered) {
        site.put("/feed", {offered.feed()});
        site.put("/package.deb", {package});
    }

    template <class Action>
    void onMain(Action action) {
        Inbox<bool> done;
        main.post([&] {
            action();
            done.put(true);
        });
        ASSERT_TRUE(done.take(60s));
    }
    template <class Action>
    void onQueue(Action action) {
        Inbox<bool> done;
        queue.post([&] {
            action();
            done.put(true);
        });
        ASSERT_TRUE(done.take(60s));
    }

    void start() {
        const UpdateSetup setup{Url::parse(site.at("/feed")).value(),
                                key.publicKey(),
                                "1.0-1",
                                "orvel-agent",
                                {"linux", "application/vnd.debian.binary-package", "amd64", "6.1"},
                                cache};
        onMain([&] {
            driver = std::make_unique<FeedUpdateDriver>(
                FeedUpdateDriver::Parts{
                    main, queue, defaults, installer,
                    [this] {
                        return makeSystemHttpClient(queue, Network{{}, trusted});
                    },
                    [] { return 0.5; }},
                setup);
            driver->start({[this] { calls.put(driver->canCheck() ? "can" : "cannot"); },
                           [this](const AvailableUpdate& update, bool standard, bool byUser) {
                               calls.put("found " + update.displayVersion +
                                         (standard ? " standard" : "") + (byUser ? " asked" : ""));
                           },
                           [this](const AvailableUpdate&) { calls.put("attended"); },
                           [this] { calls.put("finished"); },
                           [this](const UpdateState& state) { states.put(nameOf(state)); }});
        });
    }
    void act(void (UpdateDriver::*action)()) {
        onMain([this, action] { ((*driver).*action)(); });
    }
    // The next state that is none on the way to another.
    std::string settled() {
        for (;;) {
            const auto state = states.take(60s).value_or("nothing");
            if (state != "checking" && state != "loading" && state != "installing") return state;
        }
    }
    std::string checked() {
        act(&UpdateDriver::checkForUpdates);
        return settled();
    }
    std::string installed() {
        act(&UpdateDriver::install);
        return settled();
    }
    // Back to rest.
    void dismiss() {
        act(&UpdateDriver::dismiss);
        EXPECT_EQ(settled(), "idle");
    }
    std::vector<std::string> files() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(cache))
            names.push_back(entry.path().filename());
        return names;
    }
};

TEST_F(FeedUpdateDriverTest, findsLoadsVerifiesAndHandsOver) {
    fs::create_directories(cache);
    fs::permissions(cache, fs::perms::all);
    std::ofstream(cache + "/orvel-agent_1.5_amd64.deb.part") << "left";
    publish(offer());
    start();
    EXPECT_EQ(checked(), "found");
    EXPECT_TRUE(files().empty());
    struct stat found;
    ASSERT_EQ(stat(cache.c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 0777, 0700u);
    EXPECT_EQ(installed(), "ready");
    EXPECT_EQ(files(), std::vector<std::string>{"orvel-agent_2.0-1_amd64.deb"});
    onQueue([this] { installer.outcome = PackageInstaller::Outcome::declined; });
    EXPECT_EQ(installed(), "ready");
    onQueue([this] { installer.outcome = PackageInstaller::Outcome::installed; });
    EXPECT_EQ(installed(), "installed");
    EXPECT_EQ(checked(), "installed");
    EXPECT_EQ(installer.installed, (std::vector<std::string>{package, package}));
    EXPECT_TRUE(files().empty());
    act(&UpdateDriver::dismiss);
    std::string told;
    while (told.find("finished") == std::string::npos)
        told += calls.take(60s).value_or("finished?") + ", ";
    EXPECT_EQ(told,
              "cannot, found 2.0-1 asked, can, attended, cannot, can, cannot, can, finished, ");
}

TEST_F(FeedUpdateDriverTest, asksOnlyWhomItTrustsAndOverTlsAlone) {
    const std::string good = offer().feed();
    const auto with = [&](auto change) {
        Offer changed = offer();
        change(changed);
        return UpdateSite::Page{changed.feed()};
    };
    const auto moved = [](const std::string& where) {
        return UpdateSite::Page{"", "302 Found", where};
    };
    TestServer plain([&](auto& connection) {
        boost::asio::write(connection, boost::asio::buffer("HTTP/1.1 200 OK\r\n\r\n" + good));
    });
    site.put("/moved", {good});
    site.put("/loop", moved("/loop"));
    const std::pair<const char*, std::pair<UpdateSite::Page, const char*>> rows[] = {
        {"newer", {{good}, "found"}},
        {"moved", {moved("/moved"), "found"}},
        {"moved by a whole address", {moved(site.at("/moved")), "found"}},
        {"moved to http", {moved("http://" + plain.address() + "/feed"), "failed, unreachable"}},
        {"moved to a file", {moved("file:///etc/passwd"), "failed, unreachable"}},
        {"moved round and round", {moved("/loop"), "failed, unreachable"}},
        {"moved to nowhere", {moved(""), "failed, unreachable"}},
        {"missing", {{good, "404 Not Found"}, "failed, unreachable"}},
        {"cut short", {{good, "200 OK", "", good.size() + 1}, "failed, unreachable"}},
        {"not XML", {{"{}"}, "failed, unreadable"}},
        {"with a document type", {{"<!DOCTYPE rss>" + good}, "failed, unreadable"}},
        {"huge", {{std::string(Appcast::maxSize + 1, ' ')}, "failed, unreadable"}},
        {"empty", {{"<rss><channel/></rss>"}, "up to date"}},
        {"this version", {with([](Offer& o) { o.version = "1.0-1"; }), "up to date"}},
        {"older", {with([](Offer& o) { o.version = "0.9.9-7"; }), "up to date"}},
        {"for Macs", {with([](Offer& o) { o.system = ""; }), "up to date"}},
    };
    start();
    for (const auto& [name, row] : rows) {
        site.put("/feed", row.first);
        EXPECT_EQ(checked(), row.second) << name;
        dismiss();
    }
    std::ofstream(trusted) << another.certificate();
    EXPECT_EQ(checked(), "failed, unreachable");
}

TEST_F(FeedUpdateDriverTest, keepsOnlyThePackageThatWasSigned) {
    const SigningKey foreign;
    struct Row {
        const char* name;
        std::function<void(Offer&)> offer;
        UpdateSite::Page page;
        const char* state;
        PackageInstaller::Identity identity = {"orvel-agent", "2.0-1", "amd64"};
    };
    std::string changed = package;
    changed[1000] ^= 1;
    const auto nothing = [](Offer&) {};
    const Row rows[] = {
        {"unsigned", [](Offer& o) { o.signature = ""; }, {package}, "failed, not genuine"},
        {"signed by another",
         [&](Offer& o) { o.signature = foreign.sign(package); },
         {package},
         "failed, not genuine"},
        {"no signature", [](Offer& o) { o.signature = "AAAA"; }, {package}, "failed, not genuine"},
        {"another package", nothing, {changed}, "failed, not genuine"},
        {"a shorter one", nothing, {package.substr(1)}, "failed, not genuine"},
        {"a longer one", nothing, {package + "!"}, "failed, not genuine"},
        {"announced too long",
         [](Offer& o) { o.length = "300004"; },
         {package},
         "failed, not genuine"},
        {"cut short", nothing, {package, "200 OK", "", package.size() + 1}, "failed, unreachable"},
        {"moved to http", nothing, {"", "302 Found", "http://localhost/p"}, "failed, unreachable"},
        {"missing", nothing, {"", "404 Not Found"}, "failed, unreachable"},
        // Signed once, but not this: an old package, or another one, under a new name.
        {"an old one", nothing, {package}, "failed, not genuine", {"orvel-agent", "0.9", "amd64"}},
        {"this one", nothing, {package}, "failed, not genuine", {"orvel-agent", "1.0-1", "amd64"}},
        {"not the promised one",
         nothing,
         {package},
         "failed, not genuine",
         {"orvel-agent", "2.1", "amd64"}},
        {"another program", nothing, {package}, "failed, not genuine", {"vim", "2.0-1", "amd64"}},
        {"another machine",
         nothing,
         {package},
         "failed, not genuine",
         {"orvel-agent", "2.0-1", "arm64"}},
        {"the right one", nothing, {package}, "ready"},
    };
    start();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Offer offered = offer();
        row.offer(offered);
        publish(offered);
        site.put("/package.deb", row.page);
        onQueue([&] { installer.identity = row.identity; });
        EXPECT_EQ(checked(), "found");
        EXPECT_EQ(installed(), row.state);
        EXPECT_EQ(files().size(), row.state == std::string("ready") ? 1u : 0u);
        if (row.state != std::string("ready")) dismiss();
    }
    // Somebody changes it while the user decides.
    std::ofstream(cache + "/orvel-agent_2.0-1_amd64.deb") << changed;
    EXPECT_EQ(installed(), "failed, not genuine");
    EXPECT_TRUE(installer.installed.empty());
    EXPECT_TRUE(files().empty());
}

TEST_F(FeedUpdateDriverTest, saysWhenThereIsNoPlaceForIt) {
    publish(offer());
    std::ofstream(folder / "cache") << "in the way";
    start();
    EXPECT_EQ(checked(), "found");
    EXPECT_EQ(installed(), "failed, no room");
}

TEST_F(FeedUpdateDriverTest, letsGoOfWhatIsUnderWay) {
    Inbox<bool> asked;
    TestServer silent([&](auto& connection) {
        asked.put(true);
        connection.wait(boost::asio::ip::tcp::socket::wait_error);
    });
    Offer stalling = offer();
    stalling.url = "https://" + silent.address() + "/package.deb";
    publish(stalling);
    start();
    EXPECT_EQ(checked(), "found");
    act(&UpdateDriver::install);
    EXPECT_TRUE(asked.take(60s));
    dismiss();
    EXPECT_TRUE(files().empty());
    publish(offer());
    EXPECT_EQ(checked(), "found");
    EXPECT_EQ(installed(), "ready");
    dismiss();
    EXPECT_TRUE(files().empty());
}

TEST_F(FeedUpdateDriverTest, takesWhatTheMaintainersScriptPublishes) {
    // A package as small as one can be, numbered as between two releases, and the key as it is made
    // for publishing.
    const auto run = [&](const std::string& script) {
        BackgroundProcess shell({.command = {"bash", "-ec", script},
                                 .environment = {{"FOLDER", folder.path.string()},
                                                 {"URL", site.at("/package.deb")},
                                                 {"ORVEL", ORVEL_ROOT "/orvel"}}});
        return shell.wait(60s);
    };
    ASSERT_EQ(run("cd \"$FOLDER\"; mkdir -p tree/DEBIAN; printf '%s\\n' 'Package: orvel-agent' "
                  "'Version: 2.0+git20261121.184702.d0570b76-0orvel1' 'Architecture: amd64' "
                  "'Maintainer: A <a@example.org>' 'Description: a test' >tree/DEBIAN/control; "
                  "dpkg-deb --build tree new.deb;"
                  "openssl genpkey -algorithm ed25519 -out key.pem;"
                  "openssl pkey -in key.pem -pubout -outform DER | tail -c 32 | base64 >public;"
                  "echo '<b>Yeni & güzel</b>' >notes; "
                  "\"$ORVEL\" appcast new.deb key.pem \"$URL\" --notes notes >feed;"
                  "sed -i s/2.0+git/2.0~rc/ tree/DEBIAN/control; dpkg-deb --build tree old.deb;"
                  "\"$ORVEL\" appcast old.deb key.pem \"$URL\" --into feed"),
              0);
    const auto publicKey = fromBase64(fileText(folder / "public").substr(0, 44));
    ASSERT_TRUE(publicKey);
    const auto feed = fileText(folder / "feed");
    const auto items = Appcast::parse(bytesOf(feed));
    ASSERT_TRUE(items && items->size() == 2);
    site.put("/feed", {feed});
    site.put("/package.deb", {fileText(folder / "new.deb")});
    const auto debian = makeDebianInstaller(queue);
    const UpdateSetup setup{
        Url::parse(site.at("/feed")).value(),           *publicKey, "1.0-1", "orvel-agent",
        {"linux", items->front().type, "amd64", "6.1"}, cache};
    const auto session = std::make_shared<UpdateSession>(
        UpdateSession::Parts{queue, defaults, *debian,
                             [this] {
                                 return makeSystemHttpClient(queue, Network{{}, trusted});
                             },
                             [] { return 0.5; }},
        setup,
        UpdateSession::Outlet{[this](const UpdateState& state) {
                                  states.put(nameOf(state));
                                  if (const auto* one =
                                          std::get_if<UpdateState::Found>(&state.value))
                                      calls.put(one->update.displayVersion + one->update.notes);
                              },
                              [](auto&&...) {}, [](auto&&...) {}, [] {}, [](bool) {}});
    onQueue([&] {
        session->start(false);
        session->check();
    });
    EXPECT_EQ(settled(), "found");
    EXPECT_EQ(calls.take(), "2.0+git20261121.184702.d0570b76<b>Yeni & güzel</b>");
    onQueue([&] { session->install(); });
    EXPECT_EQ(settled(), "ready");  // dpkg-deb read the same names
    onQueue([&] { session->dismiss(); });
}

}  // namespace
}  // namespace orvel
