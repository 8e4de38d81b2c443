#include <gmock/gmock.h>

#include "Phone/PhoneProgramForTests.h"

namespace orvel::phone {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

class InputTest : public PhoneProgramTest {
protected:
    // What an agent gets to see of a command.
    std::vector<Control> sent(std::vector<std::string> arguments) {
        std::vector<Control> controls;
        AgentForTests agent([&](AgentEnd& end) {
            end.admit();
            end.record(controls);
        });
        know(agent);
        EXPECT_EQ(runAt(agent, std::move(arguments)), 0) << remarked();
        agent.finish();
        return controls;
    }
    std::vector<std::string> sentJson(std::vector<std::string> arguments) {
        std::vector<std::string> json;
        for (const Control& control : sent(std::move(arguments)))
            json.push_back(control.toJson());
        return json;
    }
};

struct Row {
    std::vector<std::string> arguments;
    std::vector<std::string> controls;
};

const Row rows[] = {
    {{"move", "3.5", "-1"}, {R"({"move":{"dx":3.5,"dy":-1}})"}},
    {{"move", "--to", "0.25", "1"}, {R"({"moveTo":{"x":0.25,"y":1}})"}},
    {{"click"},
     {R"({"button":{"_0":"left","down":true,"clicks":1}})",
      R"({"button":{"_0":"left","down":false,"clicks":1}})"}},
    {{"click", "right", "--count", "2", "--at", "0.5", "0"},
     {R"({"moveTo":{"x":0.5,"y":0}})", R"({"button":{"_0":"right","down":true,"clicks":1}})",
      R"({"button":{"_0":"right","down":false,"clicks":1}})",
      R"({"button":{"_0":"right","down":true,"clicks":2}})",
      R"({"button":{"_0":"right","down":false,"clicks":2}})"}},
    {{"drag", "0", "0", "0.5", "1", "--seconds", "0.03"},
     {R"({"moveTo":{"x":0,"y":0}})", R"({"button":{"_0":"left","down":true,"clicks":1}})",
      R"({"moveTo":{"x":0.25,"y":0.5}})", R"({"moveTo":{"x":0.5,"y":1}})",
      R"({"button":{"_0":"left","down":false,"clicks":1}})"}},
    {{"scroll", "0", "-10", "--seconds", "0.05"},
     {R"({"scroll":{"dx":0,"dy":0,"phase":"began"}})",
      R"({"scroll":{"dx":0,"dy":-3,"phase":"changed"}})",
      R"({"scroll":{"dx":0,"dy":-4,"phase":"changed"}})",
      R"({"scroll":{"dx":0,"dy":-3,"phase":"changed"}})",
      R"({"scroll":{"dx":0,"dy":0,"phase":"ended"}})"}},
    {{"key", "cmd+shift+a", "up"},
     {R"({"key":{"code":0,"down":true,"modifiers":9}})",
      R"({"key":{"code":0,"down":false,"modifiers":9}})",
      R"({"key":{"code":126,"down":true,"modifiers":0}})",
      R"({"key":{"code":126,"down":false,"modifiers":0}})"}},
    {{"key", "a", "--down"}, {R"({"key":{"code":0,"down":true,"modifiers":0}})"}},
    {{"key", "a", "--up"}, {R"({"key":{"code":0,"down":false,"modifiers":0}})"}},
    {{"key", "a", "--hold", "0.01"},
     {R"({"key":{"code":0,"down":true,"modifiers":0}})",
      R"({"key":{"code":0,"down":false,"modifiers":0}})"}},
    {{"type", "Şu ılık çöğüş 👍🏽\n"},
     {R"({"text":{"_0":"Şu ılık çöğüş 👍🏽\n"}})"}},
    {{"type", ""}, {}},
    {{"clip", "two\nlines"}, {R"({"clipboard":{"_0":"two\nlines"}})"}},
};

TEST_F(InputTest, eachCommandSendsItsControlsAndWaitsForThem) {
    for (const Row& row : rows) {
        SCOPED_TRACE(row.arguments.front());
        EXPECT_EQ(sentJson(row.arguments), row.controls);
    }
}

TEST_F(InputTest, aScrollMayRunOut) {
    double way = 0, last = 1e9;
    std::vector<std::string> phases;
    for (const Control& control : sent({"scroll", "12", "0", "--seconds", "0", "--momentum"})) {
        const auto& scroll = *control.as<Control::Scroll>();
        if (phases.empty() || phases.back() != rawValue(scroll.phase)) {
            phases.emplace_back(rawValue(scroll.phase));
        }
        if (scroll.phase != ScrollPhase::momentum) continue;
        EXPECT_LT(scroll.dx, last);
        last = scroll.dx;
        way += scroll.dx;
    }
    EXPECT_THAT(phases, ElementsAre("began", "changed", "ended", "momentum", "momentumEnded"));
    EXPECT_GT(way, 12);
    EXPECT_LT(last, 1);
}

TEST_F(InputTest, longTextGoesInPiecesThatCutNoCharacter) {
    std::string text;
    for (int i = 0; i < 1500; ++i)
        text += "ş👍";
    type(text + "\r\n");
    endTyping();
    std::string typed;
    const auto controls = sent({"type", "-"});
    EXPECT_GT(controls.size(), 1u);
    for (const Control& control : controls)
        typed += control.as<Control::Text>()->text;
    EXPECT_EQ(typed, text + "\n");
}

TEST_F(InputTest, whatIsNoUtf8IsNotTyped) {
    EXPECT_EQ(run({"type", "a\xff"}), 1);
    EXPECT_THAT(remarked(), HasSubstr("not UTF-8"));
}

TEST_F(InputTest, aCommandThatWasNotTakenFails) {
    AgentForTests agent([](AgentEnd& end) {
        end.admit();
        end.receive<Control::Move>();  // and goes
    });
    know(agent);
    EXPECT_EQ(runAt(agent, {"move", "1", "1"}), 1);
    EXPECT_THAT(remarked(), StartsWith("Desk: The"));
}

TEST_F(InputTest, clipPrintsWhatIsCopied) {
    AgentForTests agent([](AgentEnd& end) {
        end.admit();
        end.send({Control::Clipboard{"one\x1b[2J\n2"}});
        end.send({Control::TextFocus{true}});
        end.send({Control::Clipboard{"two"}});
        end.waitForEnd();
    });
    know(agent);
    EXPECT_EQ(runAt(agent, {"clip", "-c", "2"}), 0) << remarked();
    EXPECT_EQ(said(), "one\x1b[2J\n2\ntwo\n") << "as it is, for other programs";
    EXPECT_EQ(runAt(agent, {"--json", "clip", "-c", "1"}), 0);
    EXPECT_EQ(said(), "{\"clipboard\":\"one\\u001b[2J\\n2\"}\n");
    terminals.out = true;
    EXPECT_EQ(runAt(agent, {"clip", "-c", "1"}), 0);
    EXPECT_EQ(said(), "one\\x1b[2J\n2\n");
}

}  // namespace

}  // namespace orvel::phone
