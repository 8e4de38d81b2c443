#include "OrvelAgent/Desk/FocusWatcher.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "OrvelAgent/Platform/Fake/FakeTextFocus.h"
#include "OrvelAgent/Platform/Fake/FakeWorkspace.h"

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace orvel {
namespace {

class FocusWatcherTest : public testing::Test {
protected:
    FocusWatcherTest() {
        watcher->onFrontApp = [this](const std::string& bundleID, const std::string& name) {
            news.push_back(bundleID + " \"" + name + "\"");
        };
        watcher->onTextFocus = [this](bool isText) { news.push_back(isText ? "text" : "no text"); };
    }
    void onMain(std::function<void()> action) {
        queue.post(std::move(action));
        time.runPending();
    }
    void start() {
        onMain([this] { watcher->start(); });
    }
    void stop() {
        onMain([this] { watcher->stop(); });
    }
    void activate(const Workspace::Application& application) {
        onMain([&] { workspace.activate(application); });
    }
    std::vector<std::string> newsWithin(Duration duration) {
        time.advance(duration);
        return std::exchange(news, {});
    }

    VirtualTime time;
    SerialQueue queue{"main", time};
    FakeWorkspace workspace;
    FakeTextFocus focus;
    std::shared_ptr<FocusWatcher> watcher = std::make_shared<FocusWatcher>(queue, workspace, focus);
    std::vector<std::string> news;
};

TEST_F(FocusWatcherTest, startReportsTheApplicationAtOnceAndTheFocusWithinThreeTenths) {
    workspace.front = {"org.example.Editor", "Düzenleyici"};
    start();
    EXPECT_THAT(newsWithin(0s), ElementsAre("org.example.Editor \"Düzenleyici\""));
    EXPECT_THAT(newsWithin(299ms), IsEmpty());
    EXPECT_THAT(newsWithin(1ms), ElementsAre("no text"));
}

TEST_F(FocusWatcherTest, anUnknownApplicationIsReportedEmpty) {
    start();
    EXPECT_THAT(newsWithin(0s), ElementsAre(" \"\""));
}

TEST_F(FocusWatcherTest, everyActivationIsReported) {
    start();
    newsWithin(1s);
    activate({"a", "A"});
    activate({"a", "A"});
    activate({"", "B"});
    EXPECT_THAT(newsWithin(0s), ElementsAre("a \"A\"", "a \"A\"", " \"B\""));
}

TEST_F(FocusWatcherTest, whatTakesTextIsToldByRoleOrBySelection) {
    const struct {
        const char* name;
        std::optional<TextFocus::Element> element;
        bool isText;
    } rows[] = {
        {"nothing", std::nullopt, false},
        {"a line", {{"AXTextField", false}}, true},
        {"many lines", {{"AXTextArea", false}}, true},
        {"a combo box", {{"AXComboBox", false}}, true},
        {"a search field", {{"AXSearchField", true}}, true},
        {"a button", {{"AXButton", false}}, false},
        {"a page", {{"AXWebArea", false}}, false},
        {"an editable part of a page", {{"AXGroup", true}}, true},
        {"no role", {{std::nullopt, false}}, false},
        {"no role, but a selection", {{std::nullopt, true}}, true},
        {"nearly a role", {{"AXTextFiel", false}}, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        focus.element = row.element;
        start();
        newsWithin(0s);
        EXPECT_THAT(newsWithin(300ms), ElementsAre(row.isText ? "text" : "no text"));
    }
}

TEST_F(FocusWatcherTest, onlyChangesOfTheFocusAreReported) {
    focus.element = {"AXTextField", true};
    start();
    newsWithin(0s);
    EXPECT_THAT(newsWithin(3s), ElementsAre("text"));
    focus.element = {"AXTextArea", true};
    EXPECT_THAT(newsWithin(3s), IsEmpty());
    focus.element = {"AXButton", false};
    EXPECT_THAT(newsWithin(3s), ElementsAre("no text"));
    focus.element.reset();
    EXPECT_THAT(newsWithin(3s), IsEmpty());
}

TEST_F(FocusWatcherTest, stoppedItDoesNothing) {
    start();
    newsWithin(1s);
    stop();
    EXPECT_FALSE(focus.isObserved);
    EXPECT_FALSE(workspace.isObserved());
    const int questions = focus.questions;
    activate({"a", "A"});
    EXPECT_THAT(newsWithin(10s), IsEmpty());
    EXPECT_EQ(focus.questions, questions);
}

TEST_F(FocusWatcherTest, startedAgainItReportsAfresh) {
    start();
    newsWithin(1s);
    stop();
    start();
    EXPECT_TRUE(focus.isObserved);
    EXPECT_THAT(newsWithin(1s), ElementsAre(" \"\"", "no text"));
    start();  // without a stop
    EXPECT_THAT(newsWithin(1s), ElementsAre(" \"\"", "no text"));
    activate({"a", "A"});
    EXPECT_THAT(newsWithin(0s), ElementsAre("a \"A\""));
}

TEST_F(FocusWatcherTest, aReportMayEndTheWatcher) {
    start();
    watcher->onTextFocus = [this](bool) {
        watcher->stop();
        watcher.reset();
    };
    newsWithin(5s);
    activate({"a", "A"});
    EXPECT_THAT(newsWithin(5s), IsEmpty());
}

}  // namespace
}  // namespace orvel
