#include "OrvelAgent/Desk/ClipboardWatcher.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "OrvelAgent/Platform/Fake/FakePasteboard.h"

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

namespace orvel {
namespace {

std::string accents(std::size_t bytes) {
    std::string text;
    while (text.size() < bytes)
        text += "\u0301";
    return text;
}

class ClipboardWatcherTest : public testing::Test {
protected:
    ClipboardWatcherTest() { pasteboard.copy("before"); }

    void start() {
        onMain([this] {
            watcher = std::make_shared<ClipboardWatcher>(queue, pasteboard);
            watcher->onCopy = [this](std::string text) { copies.push_back(std::move(text)); };
            watcher->start();
        });
    }
    void onMain(std::function<void()> action) {
        queue.post(std::move(action));
        time.runPending();
    }
    std::vector<std::string> copiesWithin(Duration duration) {
        time.advance(duration);
        return std::exchange(copies, {});
    }
    void phoneCopies(const std::string& text) {
        onMain([&] { watcher->setText(text); });
    }

    VirtualTime time;
    SerialQueue queue{"main", time};
    FakePasteboard pasteboard{queue};
    std::vector<std::string> copies;
    std::shared_ptr<ClipboardWatcher> watcher;
};

TEST_F(ClipboardWatcherTest, whatWasThereBeforeIsNotReported) {
    start();
    EXPECT_THAT(copiesWithin(10s), IsEmpty());
}

TEST_F(ClipboardWatcherTest, aCopyIsReportedWithinASecondAndOnce) {
    start();
    time.advance(500ms);
    pasteboard.copy("Şu ılık çöğüş");
    EXPECT_THAT(copiesWithin(499ms), IsEmpty());
    EXPECT_THAT(copiesWithin(1ms), ElementsAre("Şu ılık çöğüş"));
    EXPECT_THAT(copiesWithin(10s), IsEmpty());
}

TEST_F(ClipboardWatcherTest, theSameTextTwiceIsReportedTwice) {
    start();
    pasteboard.copy("a");
    EXPECT_THAT(copiesWithin(1s), ElementsAre("a"));
    pasteboard.copy("a");
    EXPECT_THAT(copiesWithin(1s), ElementsAre("a"));
}

TEST_F(ClipboardWatcherTest, ofSeveralCopiesInASecondTheLastIsReported) {
    start();
    pasteboard.copy("a");
    pasteboard.copy("b");
    EXPECT_THAT(copiesWithin(2s), ElementsAre("b"));
}

TEST_F(ClipboardWatcherTest, reportsTextsOfAMillionCharactersAndSkipsTheRest) {
    std::string accented;
    for (int i = 0; i < 1'000'000; ++i)
        accented += "é";
    const struct {
        const char* name;
        std::optional<std::string> content;
        bool isReported;
    } rows[] = {
        {"a picture", std::nullopt, false},
        {"an empty text", "", false},
        {"a million characters", std::string(1'000'000, 'x'), true},
        {"one more", std::string(1'000'001, 'x'), false},
        {"a million of two bytes", accented, true},
        {"one more of two bytes", accented + "é", false},
        {"one character of very many accents", "e" + accents(12'000'000), false},
        {"one of not so many", "e" + accents(2'000'000), true},
        {"a million that JSON escapes", std::string(1'000'000, '\x01'), true},
    };
    start();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        pasteboard.copy(row.content);
        EXPECT_EQ(copiesWithin(1s).size(), row.isReported ? 1u : 0u);
        // What was skipped is not looked at again.
        EXPECT_THAT(copiesWithin(5s), IsEmpty());
    }
}

TEST_F(ClipboardWatcherTest, thePhonesOwnTextIsNotReported) {
    for (const bool counts : {true, false}) {
        SCOPED_TRACE(counts);
        pasteboard.countsOwnWrites = counts;
        start();
        phoneCopies("from the phone");
        EXPECT_EQ(pasteboard.content, "from the phone");
        EXPECT_THAT(copiesWithin(5s), IsEmpty());
        pasteboard.copy("from the phone");
        EXPECT_THAT(copiesWithin(1s), ElementsAre("from the phone"));
    }
}

TEST_F(ClipboardWatcherTest, aTextThatComesLateIsReportedThen) {
    pasteboard.answersLate = true;
    start();
    pasteboard.copy("slow");
    EXPECT_THAT(copiesWithin(3s), IsEmpty());
    EXPECT_EQ(pasteboard.readsWaiting(), 1u);
    pasteboard.answerNow();
    EXPECT_THAT(copiesWithin(0s), ElementsAre("slow"));
}

TEST_F(ClipboardWatcherTest, aLateTextIsNotTakenForOneThatReplacedIt) {
    for (const bool counts : {true, false}) {
        SCOPED_TRACE(counts);
        pasteboard.countsOwnWrites = counts;
        pasteboard.answersLate = true;
        start();
        pasteboard.copy("slow");
        time.advance(1s);
        phoneCopies("from the phone");
        pasteboard.answerNow();
        EXPECT_THAT(copiesWithin(5s), IsEmpty());
    }
}

TEST_F(ClipboardWatcherTest, aCopyWhileReadingIsReportedOnce) {
    pasteboard.answersLate = true;
    start();
    pasteboard.copy("a");
    time.advance(1s);
    pasteboard.copy("b");
    pasteboard.answerNow();
    EXPECT_THAT(copiesWithin(1s), IsEmpty());
    pasteboard.answerNow();
    EXPECT_THAT(copiesWithin(5s), ElementsAre("b"));
}

TEST_F(ClipboardWatcherTest, aWatcherThatIsGoneReportsNothing) {
    pasteboard.answersLate = true;
    start();
    pasteboard.copy("a");
    time.advance(1s);
    watcher.reset();
    pasteboard.answerNow();
    EXPECT_THAT(copiesWithin(5s), IsEmpty());
}

}  // namespace
}  // namespace orvel
