#include "OrvelAgent/Platform/Linux/AccessibleTree.h"

#include <gtest/gtest.h>

#include <future>

#include "OrvelAgent/Platform/Linux/MainQueueForTests.h"
#include "Tests/Support/BusService.h"

namespace orvel {
namespace {

constexpr const char* hang = "import signal; signal.pause()";
constexpr const char* path = "/org/a11y/atspi/accessible/root";

// Questions to an application that answers as a test wants.
struct AccessibleTreeTest : testing::Test {
    PrivateBus bus;
    BusService application{bus, "test.Application", path, "org.a11y.atspi.Accessible"};
    const AccessibleRef root{"test.Application", path};
    MainQueue main;
    std::shared_ptr<AsyncBus> connection = main.run([this] {
        auto opened = std::make_shared<AsyncBus>(main.queue);
        EXPECT_TRUE(opened->open(bus.address(), std::chrono::seconds(5)));
        return opened;
    });

    ~AccessibleTreeTest() override {
        main.run([this] { connection.reset(); });
    }

    template <class Result, class Ask>
    Result answer(Ask ask) {
        std::promise<Result> promise;
        auto result = promise.get_future();
        main.run([&] {
            ask(AccessibleTree(connection),
                [&promise](const Result& value) { promise.set_value(value); });
        });
        return result.get();
    }
    std::optional<AccessibleState> described() {
        return answer<std::optional<AccessibleState>>(
            [this](const AccessibleTree& tree, auto done) { tree.describe(root, done); });
    }
};

// A window that contains itself, for ever.
TEST_F(AccessibleTreeTest, theSearchForTheFocusHasAnEnd) {
    application.addMethod("GetState", "", "au", "ret = [1 << 25, 0]");  // showing
    application.addMethod(
        "GetChildren", "", "a(so)",
        std::string("ret = [(self.connection.get_unique_name(), '") + path + "')] * 3");
    const auto found = answer<std::optional<AccessibleRef>>(
        [this](const AccessibleTree& tree, auto done) { tree.focusedElement(root, done); });
    EXPECT_FALSE(found);
    const auto calls = application.calls();
    std::size_t asked = 0;
    for (auto at = calls.find("GetState"); at != calls.npos; at = calls.find("GetState", at + 1))
        ++asked;
    EXPECT_GT(asked, 100u);
    EXPECT_LE(asked, 400u);
}

TEST_F(AccessibleTreeTest, nonsenseIsNoAnswer) {
    EXPECT_FALSE(described()) << "no answer at all";
    application.addMethod("GetRole", "", "u", "ret = 61");
    application.addMethod("GetState", "", "au", "ret = [1 << 7 | 1 << 8]");  // a half of it
    application.addMethod("GetInterfaces", "", "as", "ret = ['org.a11y.atspi.Text']");
    application.addMethod("GetChildren", "", "a(so)",
                          "ret = [('no.unique.name', '/'), (':1.2', '/a')]");
    const auto whole = described();
    ASSERT_TRUE(whole);
    EXPECT_EQ(whole->element().role, "AXTextField");
    const auto children = answer<std::vector<AccessibleRef>>(
        [this](const AccessibleTree& tree, auto done) { tree.children(root, done); });
    EXPECT_EQ(children, (std::vector<AccessibleRef>{{":1.2", "/a"}}));

    for (const auto& [method, type, value, right] :
         std::vector<std::tuple<const char*, const char*, const char*, const char*>>{
             {"GetRole", "s", "'text'", "u"},
             {"GetState", "s", "'editable'", "au"},
             {"GetInterfaces", "au", "[1]", "as"}}) {
        application.addMethod(method, "", type, std::string("ret = ") + value);
        EXPECT_FALSE(described()) << method;
        application.addMethod(method, "", right,
                              std::string("ret = ") + (right[0] == 'u' ? "61" : "[]"));
    }
}

TEST_F(AccessibleTreeTest, anApplicationThatHangsIsGivenUpAndHoldsUpNoOther) {
    application.addMethod("GetState", "", "au", hang);
    BusService other(bus, "test.Other", path, "org.a11y.atspi.Accessible");
    other.addMethod("GetState", "", "au", "ret = [2, 0]");
    std::vector<std::optional<std::uint64_t>> answers;
    main.run([&] {
        const AccessibleTree tree(connection);
        tree.states(root, [&](auto bits) { answers.push_back(bits); });
        tree.states({"test.Other", path}, [&](auto bits) { answers.push_back(bits); });
    });
    EXPECT_TRUE(eventually([&] { return main.run([&] { return answers.size() == 2; }); }));
    EXPECT_EQ(answers, (std::vector<std::optional<std::uint64_t>>{2, std::nullopt}));
}

TEST_F(AccessibleTreeTest, theEndOfTheBusAnswersEverything) {
    application.addMethod("GetState", "", "au", hang);
    std::promise<bool> answered;
    bool isLost = false;
    main.run([&] {
        connection->onClosed = [&] { isLost = true; };
        AccessibleTree(connection).states(root, [&](auto bits) {
            answered.set_value(bits.has_value());
        });
    });
    bus.stop();
    EXPECT_FALSE(answered.get_future().get());
    EXPECT_TRUE(eventually([&] { return main.run([&] { return isLost; }); }));
    EXPECT_FALSE(main.run([this] { return connection->isOpen(); }));
}

}  // namespace
}  // namespace orvel
