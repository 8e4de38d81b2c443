#include "Phone/PhoneState.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "Tests/Support/BackgroundProcess.h"
#include "Tests/Support/TemporaryFolder.h"

namespace orvel::phone {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

KnownAgent agentAt(const std::string& host, const std::string& name = "Desk") {
    const Bytes key = PrivateKey::generate().publicKey();
    return {Identity::fingerprint(key), key, name, host, 47800, {}};
}

std::vector<std::string> idsOf(const PhoneState& state) {
    std::vector<std::string> ids;
    for (const auto& agent : state.agents())
        ids.push_back(agent.id);
    return ids;
}

unsigned modeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 0777;
}

std::string errorOf(const std::string& folder) {
    try {
        const PhoneState state(folder);
    } catch (const PhoneState::Error& error) {
        return error.what();
    }
    return "";
}

void write(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

TEST(PhoneState, theKeyIsMadeOnceAndForItsOwnerOnly) {
    const TemporaryFolder folder;
    const std::string path = folder / "a/b/state";
    const PhoneState first(path), second(path);
    EXPECT_EQ(first.identity().fingerprint(), second.identity().fingerprint());
    EXPECT_EQ(modeOf(path), 0700u);
    EXPECT_EQ(modeOf(path + "/identity"), 0600u);
    EXPECT_THAT(first.warnings(), IsEmpty());
    EXPECT_THAT(first.agents(), IsEmpty());
}

TEST(PhoneState, twoFirstStartsAtOnceAgreeOnOneKey) {
    const TemporaryFolder folder;
    std::vector<std::string> ids(8);
    std::vector<std::thread> starts;
    for (auto& id : ids)
        starts.emplace_back(
            [&folder, &id] { id = PhoneState(folder / "state").identity().fingerprint(); });
    for (auto& thread : starts)
        thread.join();
    EXPECT_THAT(ids, testing::Each(ids.front()));
}

TEST(PhoneState, aKeyThatIsNoneIsRefusedAndLeftAlone) {
    for (const std::string content : {"", "short", "thirty-three bytes are one too many"}) {
        SCOPED_TRACE(content);
        const TemporaryFolder folder;
        write(folder / "identity", content);
        EXPECT_THAT(errorOf(folder.path), HasSubstr("damaged"));
        EXPECT_EQ(fileText(folder / "identity"), content);
    }
}

TEST(PhoneState, aKeyThatCannotBeReadIsRefused) {
    const TemporaryFolder folder;
    std::filesystem::create_directory(folder / "identity");
    EXPECT_THAT(errorOf(folder.path), HasSubstr("cannot be read"));
    EXPECT_TRUE(std::filesystem::is_directory(folder / "identity"));
}

TEST(PhoneState, aFolderThatCannotBeMadeIsSaid) {
    const TemporaryFolder folder;
    write(folder / "file", "");
    EXPECT_THAT(errorOf(folder / "file/state"), HasSubstr("cannot be created"));
    EXPECT_THAT(errorOf(folder / "file"), HasSubstr("cannot be created"));
}

TEST(PhoneState, computersAreRememberedWithTheNewestFirst) {
    const TemporaryFolder folder;
    const KnownAgent desk = agentAt("192.0.2.1"), lap = agentAt("192.0.2.2", "Lap");
    {
        PhoneState state(folder.path);
        state.remember(desk);
        state.remember(lap);
        EXPECT_THAT(idsOf(state), ElementsAre(lap.id, desk.id));
        state.remember(desk);
    }
    EXPECT_EQ(modeOf(folder / "agents.json"), 0600u);
    const PhoneState again(folder.path);
    EXPECT_THAT(idsOf(again), ElementsAre(desk.id, lap.id));
    KnownAgent kept = again.agents()[1];
    kept.lastUsed = lap.lastUsed;
    EXPECT_EQ(kept, lap);
}

TEST(PhoneState, anAddressBelongsToTheComputerSeenThereLast) {
    const TemporaryFolder folder;
    PhoneState state(folder.path);
    const KnownAgent before = agentAt("192.0.2.1"), now = agentAt("192.0.2.1", "New");
    state.remember(before);
    state.remember(now);
    EXPECT_EQ(state.agents()[0].id, now.id);
    EXPECT_EQ(state.agents()[0].host, "192.0.2.1");
    EXPECT_EQ(state.agents()[1].id, before.id);
    EXPECT_EQ(state.agents()[1].host, "");
}

TEST(PhoneState, manyWritersLoseNothing) {
    const TemporaryFolder folder;
    const PhoneState state(folder.path);
    std::vector<std::thread> writers;
    for (int i = 0; i < 8; ++i) {
        writers.emplace_back([&, i] {
            PhoneState own(folder.path);
            for (int j = 0; j < 5; ++j)
                own.remember(agentAt("192.0.2." + std::to_string(i * 5 + j)));
        });
    }
    for (auto& writer : writers)
        writer.join();
    EXPECT_THAT(state.agents(), SizeIs(40));
}

TEST(PhoneState, aDamagedListIsKeptAsideEachTime) {
    const TemporaryFolder folder;
    PhoneState(folder.path).remember(agentAt("192.0.2.1"));
    const std::string good = fileText(folder / "agents.json");
    std::string foreignID = good;
    foreignID[foreignID.find("\"id\":\"") + 6] ^= 1;
    int number = 0;
    for (const std::string& bad : {good.substr(0, good.size() / 2), std::string(),
                                   std::string("[]"), foreignID, std::string(100, '\0')}) {
        SCOPED_TRACE(bad);
        write(folder / "agents.json", bad);
        PhoneState state(folder.path);
        EXPECT_THAT(state.agents(), IsEmpty());
        EXPECT_THAT(state.warnings(), SizeIs(1));
        EXPECT_EQ(fileText(folder / ("agents.json.damaged-" + std::to_string(++number))), bad);
    }
    PhoneState state(folder.path);
    state.remember(agentAt("192.0.2.1"));
    EXPECT_THAT(state.agents(), SizeIs(1));
    EXPECT_THAT(state.warnings(), IsEmpty());
}

TEST(PhoneState, aListThatCannotBeReadIsNotOverwritten) {
    const TemporaryFolder folder;
    std::filesystem::create_directory(folder / "agents.json");
    EXPECT_THAT(errorOf(folder.path), HasSubstr("cannot be read"));
}

TEST(PhoneState, aLostKeyIsSaidWhenComputersWereKnown) {
    const TemporaryFolder folder;
    PhoneState(folder.path).remember(agentAt("192.0.2.1"));
    std::filesystem::remove(folder / "identity");
    const PhoneState state(folder.path);
    EXPECT_THAT(state.warnings(), ElementsAre(HasSubstr("paired again")));
    EXPECT_THAT(state.agents(), SizeIs(1));
}

}  // namespace

}  // namespace orvel::phone
