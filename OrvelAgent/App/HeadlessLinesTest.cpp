#include "OrvelAgent/App/HeadlessLines.h"

#include <gtest/gtest.h>

#include "OrvelAgent/App/CommandLine.h"

namespace orvel {
namespace {

TEST(HeadlessLines, areLetterForLetterWhatOtherProgramsRead) {
    using Status = AgentCore::Status;
    const WallTime ten = fromSecondsSinceReferenceDate(10);
    const std::pair<std::string, std::string> rows[] = {
        {headlessLine::listening(47800), R"({"listening":{"port":47800}})"},
        {headlessLine::status({Status::Starting{}}), R"({"status":{"starting":{}}})"},
        {headlessLine::status({Status::Waiting{}}), R"({"status":{"waiting":{}}})"},
        {headlessLine::status({Status::Connected{"Ada \"1\"", false}}),
         R"({"status":{"connected":{"name":"Ada \"1\"","internet":false}}})"},
        {headlessLine::status({Status::Failed{"taken"}}),
         R"({"status":{"failed":{"message":"taken"}}})"},
        {headlessLine::pairingCode("000123"), R"({"pairingCode":"000123"})"},
        {headlessLine::pairingCode(std::nullopt), R"({"pairingCode":null})"},
        {headlessLine::pairingRequest(PairingRequest{"id", "Ada"}),
         R"({"pairingRequest":{"deviceID":"id","name":"Ada"}})"},
        {headlessLine::pairingRequest(std::nullopt), R"({"pairingRequest":null})"},
        {headlessLine::devices({}), R"({"devices":[]})"},
        {headlessLine::devices({{"a", "Ada", ten, ten}, {"b", "Bo", {}, {}}}),
         R"({"devices":[{"id":"a","name":"Ada","pairedAt":10,"lastSeen":10},{"id":"b","name":"Bo"}]})"},
    };
    for (const auto& [line, want] : rows)
        EXPECT_EQ(line, want);
}

// The action as text, so that a row can say what it wants.
std::string shown(const HeadlessAction::Any& action) {
    struct Show {
        std::string operator()(const HeadlessAction::Disconnect&) { return "disconnect"; }
        std::string operator()(const HeadlessAction::Forget& a) { return "forget " + a.deviceID; }
        std::string operator()(const HeadlessAction::ForgetAll&) { return "forgetAll"; }
        std::string operator()(const HeadlessAction::SetRemoteAccess& a) {
            return std::string("remote ") + rawValue(a.mode);
        }
        std::string operator()(const HeadlessAction::RejectPairing&) { return "reject"; }
        std::string operator()(const HeadlessAction::AllowPairing& a) {
            return "allow " + a.deviceID;
        }
        std::string operator()(const HeadlessAction::SetKeepAwake& a) {
            return a.keepAwake ? "awake" : "asleep";
        }
        std::string operator()(const HeadlessAction::Quit&) { return "quit"; }
        std::string operator()(const HeadlessAction::Unknown&) { return "unknown"; }
    };
    return std::visit(Show(), action);
}

TEST(HeadlessAction, readsEachActionAndRefusesTheRest) {
    const std::pair<const char*, const char*> rows[] = {
        {R"({"disconnect":{}})", "disconnect"},
        {R"( {"forget" : {"deviceID":"abc","more":1}} )", "forget abc"},
        {R"({"forgetAll":{}})", "forgetAll"},
        {R"({"setRemoteAccess":{"_0":"standby"}})", "remote standby"},
        {R"({"rejectPairing":{}})", "reject"},
        {R"({"allowPairing":{"deviceID":"abc"}})", "allow abc"},
        {R"({"setKeepAwake":{"_0":true}})", "awake"},
        {R"({"quit":{}})", "quit"},
        {R"({"setRemoteAccess":{"_0":"sometimes"}})", "unknown"},
        {R"({"setKeepAwake":{"_0":1}})", "unknown"},
        {R"({"forget":{}})", "unknown"},
        {R"({"quit":null})", "unknown"},
        {R"({"quit":{},"disconnect":{}})", "unknown"},
        {R"({"explode":{}})", "unknown"},
        {"[]", "unknown"},
        {"", "unknown"},
        {"quit", "unknown"},
    };
    for (const auto& [line, want] : rows) {
        SCOPED_TRACE(line);
        EXPECT_EQ(shown(HeadlessAction::parse(line)), want);
    }
}

CommandLine parsed(std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "orvel-agent");
    return CommandLine::parse(static_cast<int>(arguments.size()), arguments.data(), "1.2");
}

TEST(CommandLine, readsTheOptionsOfARun) {
    const auto line = parsed({"--headless", "--state-dir", "/s", "--port", "0", "--bind", "::1",
                              "--no-advertise", "--name", "Masa"});
    const auto& run = std::get<RunOptions>(line.action);
    EXPECT_TRUE(run.headless);
    EXPECT_EQ(line.stateFolder, "/s");
    EXPECT_EQ(run.port, 0);
    EXPECT_EQ(run.address, "::1");
    EXPECT_FALSE(run.advertise);
    EXPECT_EQ(run.name, "Masa");
    const auto plain = std::get<RunOptions>(parsed({}).action);
    EXPECT_FALSE(plain.headless);
    EXPECT_EQ(plain.port, 47800);
    EXPECT_TRUE(plain.advertise);
}

TEST(CommandLine, aWrongFlagIsUsageAndTwo) {
    for (const std::vector<const char*>& arguments :
         std::initializer_list<std::vector<const char*>>{{"--nonsense"},
                                                         {"--port"},
                                                         {"--port", "65536"},
                                                         {"--port", "-1"},
                                                         {"--port", "x"},
                                                         {"--bind", "somewhere"},
                                                         {"stray"}}) {
        SCOPED_TRACE(arguments.back());
        const auto line = parsed(arguments);
        ASSERT_TRUE(std::holds_alternative<CommandLine::Message>(line.action));
        const auto& message = std::get<CommandLine::Message>(line.action);
        EXPECT_EQ(message.exitStatus, 2);
        EXPECT_NE(message.text.find("--headless"), std::string::npos) << message.text;
    }
    EXPECT_EQ(std::get<CommandLine::Message>(parsed({"--help"}).action).exitStatus, 0);
}

TEST(CommandLine, handsOnWhatFollowsDefaults) {
    const auto line = parsed({"--state-dir", "/s", "defaults", "write", "key", "-5"});
    EXPECT_EQ(line.stateFolder, "/s");
    EXPECT_EQ(std::get<CommandLine::DefaultsCommand>(line.action).arguments,
              (std::vector<std::string>{"write", "key", "-5"}));
}

}  // namespace
}  // namespace orvel
