#include "OrvelAgent/Platform/Linux/LibsecretStore.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "OrvelAgent/Platform/Linux/ChosenSecretStore.h"
#include "OrvelAgent/Platform/Posix/StateTestKit.h"
#include "Tests/Support/KeyringDaemon.h"
#include "Tests/Support/ScopedEnvironment.h"

namespace orvel {
namespace {

using Status = SecretStore::Item::Status;

constexpr const char* service = "com.halverton.orvel.agent";
const Bytes key = {0, 1, 2, 0xFF, 0, '\n'};

struct SessionWithKeyring {
    PrivateBus bus;
    ScopedEnvironment address{"DBUS_SESSION_BUS_ADDRESS", bus.address()};
    KeyringDaemon keyring{bus};
};

struct LibsecretStoreTest : testing::Test {
    SessionWithKeyring session;
    LibsecretStore store;
};

TEST_F(LibsecretStoreTest, keepsBytesByServiceAndAccount) {
    EXPECT_TRUE(store.answers());
    EXPECT_EQ(store.read(service, "identity").status, Status::missing);
    EXPECT_TRUE(store.add(service, "identity", key));
    EXPECT_TRUE(store.add(service, "other", {}));
    EXPECT_EQ(store.read(service, "identity").status, Status::found);
    EXPECT_EQ(store.read(service, "identity").data, key);
    EXPECT_EQ(store.read(service, "other").status, Status::found);
    EXPECT_EQ(store.read("another", "identity").status, Status::missing);
}

TEST_F(LibsecretStoreTest, addingNeverReplaces) {
    ASSERT_TRUE(store.add(service, "identity", key));
    EXPECT_FALSE(store.add(service, "identity", Bytes(32, 1)));
    EXPECT_EQ(store.read(service, "identity").data, key);
    EXPECT_TRUE(store.replace(service, "identity", Bytes(32, 1)));
    EXPECT_EQ(store.read(service, "identity").data, Bytes(32, 1));
    EXPECT_TRUE(store.remove(service, "identity"));
    EXPECT_FALSE(store.remove(service, "identity"));
    EXPECT_EQ(store.read(service, "identity").status, Status::missing);
    EXPECT_TRUE(store.replace(service, "identity", key));
    EXPECT_EQ(store.read(service, "identity").data, key);
}

TEST_F(LibsecretStoreTest, aLockedKeyringIsUnreadableAndDoesNotChange) {
    ASSERT_TRUE(store.add(service, "identity", key));
    session.keyring.startLocked();
    EXPECT_EQ(store.read(service, "identity").status, Status::unreadable);
    EXPECT_EQ(store.read(service, "never stored").status, Status::unreadable);
    EXPECT_FALSE(store.answers());
    EXPECT_FALSE(store.add(service, "identity", Bytes(32, 1)));
    EXPECT_FALSE(store.add(service, "another", key));
    EXPECT_FALSE(store.replace(service, "identity", Bytes(32, 1)));
    EXPECT_FALSE(store.remove(service, "identity"));
    session.keyring.startUnlocked();
    EXPECT_EQ(store.read(service, "identity").data, key);
}

TEST_F(LibsecretStoreTest, aServiceThatWentAwayIsUnreadableUntilItIsBack) {
    ASSERT_TRUE(store.add(service, "identity", key));
    session.keyring.stop();
    EXPECT_EQ(store.read(service, "identity").status, Status::unreadable);
    EXPECT_FALSE(store.add(service, "another", key));
    EXPECT_FALSE(store.answers());
    session.keyring.startUnlocked();
    EXPECT_EQ(store.read(service, "identity").data, key);
}

TEST_F(LibsecretStoreTest, aBusThatWentAwayIsUnreadableAndEndsNothing) {
    ASSERT_TRUE(store.add(service, "identity", key));
    session.bus.stop();
    EXPECT_EQ(store.read(service, "identity").status, Status::unreadable);
    session.bus.start();
    session.keyring.startUnlocked();
    EXPECT_EQ(store.read(service, "identity").data, key);
}

TEST_F(LibsecretStoreTest, nobodyWaitsForAServiceThatHangs) {
    const auto limit = std::chrono::milliseconds(300);
    LibsecretStore impatient(limit);
    const auto timed = [](const auto& call) {
        const auto begin = std::chrono::steady_clock::now();
        call();
        return std::chrono::steady_clock::now() - begin;
    };
    for (BackgroundProcess* hanging : {&session.keyring.process(), &session.bus.process()}) {
        hanging->signal(SIGSTOP);
        const auto taken = timed([&] {
            EXPECT_EQ(impatient.read(service, "identity").status, Status::unreadable);
            EXPECT_FALSE(impatient.add(service, "identity", key));
        });
        EXPECT_GE(taken, 2 * limit);
        EXPECT_LT(taken, 2 * limit + std::chrono::seconds(5)) << "far below the library's own 25 s";
        hanging->signal(SIGCONT);
    }
    EXPECT_EQ(store.read(service, "identity").status, Status::missing);
}

TEST_F(LibsecretStoreTest, whatIsNoBase64IsUnreadableAndStays) {
    BackgroundProcess tool(
        {.command = {"secret-tool", "store", "--label=x", "xdg:schema",
                     "com.halverton.orvel.Secret", "service", service, "account", "identity"},
         .environment = session.bus.asSession(),
         .input = "not ours!"});
    ASSERT_EQ(tool.wait(), 0);
    EXPECT_EQ(store.read(service, "identity").status, Status::unreadable);
    EXPECT_FALSE(store.add(service, "identity", key));
    EXPECT_EQ(store.read(service, "identity").status, Status::unreadable);
}

TEST(LibsecretStore, withoutASessionNothingIsStartedOrAsked) {
    const ScopedEnvironment noBus("DBUS_SESSION_BUS_ADDRESS", std::nullopt);
    const ScopedEnvironment noRuntime("XDG_RUNTIME_DIR", std::nullopt);
    LibsecretStore store;
    EXPECT_FALSE(store.answers());
    EXPECT_EQ(store.read(service, "identity").status, Status::unreadable);
    EXPECT_FALSE(store.add(service, "identity", key));
}

struct ChosenSecretStoreTest : testing::Test {
    TemporaryFolder folder;
    const std::string record = folder / "orvel/secret-store";
    const std::string secrets = folder / "orvel/secrets";
    ScopedEnvironment noRuntime{"XDG_RUNTIME_DIR", std::nullopt};
    ScopedEnvironment noBus{"DBUS_SESSION_BUS_ADDRESS", std::nullopt};

    // Each is one run of the program.
    Status read() { return ChosenSecretStore(record, secrets).read(service, "identity").status; }
    bool add() { return ChosenSecretStore(record, secrets).add(service, "identity", key); }
};

TEST_F(ChosenSecretStoreTest, takesTheServiceThatAnswersAndStaysWithIt) {
    SessionWithKeyring session;
    EXPECT_EQ(read(), Status::missing);
    EXPECT_TRUE(add());
    EXPECT_EQ(read(), Status::found);
    EXPECT_EQ(fileText(record), "secret-service\n");
    EXPECT_FALSE(std::filesystem::exists(secrets));

    session.keyring.startLocked();
    EXPECT_EQ(read(), Status::unreadable);
    EXPECT_FALSE(add());
    session.keyring.stop();
    EXPECT_EQ(read(), Status::unreadable);
    EXPECT_FALSE(add());
    session.bus.stop();
    EXPECT_EQ(read(), Status::unreadable);
    EXPECT_FALSE(add());
    EXPECT_FALSE(std::filesystem::exists(secrets));

    session.bus.start();
    session.keyring.startUnlocked();
    EXPECT_EQ(read(), Status::found);
}

TEST_F(ChosenSecretStoreTest, takesFilesWhereNoServiceAnswersAndStaysWithThem) {
    EXPECT_EQ(read(), Status::missing);
    EXPECT_TRUE(add());
    EXPECT_EQ(fileText(record), "files\n");
    SessionWithKeyring session;
    EXPECT_EQ(read(), Status::found);
    EXPECT_EQ(LibsecretStore().read(service, "identity").status, Status::missing);
}

TEST_F(ChosenSecretStoreTest, aLockedServiceIsNoneThatAnswersAtFirst) {
    SessionWithKeyring session;
    session.keyring.startLocked();
    EXPECT_TRUE(add());
    EXPECT_EQ(fileText(record), "files\n");
}

TEST_F(ChosenSecretStoreTest, filesThatAreThereWinOverAnAbsentRecord) {
    ASSERT_TRUE(add());
    for (const char* damage : {"", "what?\n", "secret-service"}) {
        SCOPED_TRACE(damage);
        writeFile(record, damage);
        SessionWithKeyring session;
        EXPECT_EQ(read(), Status::found);
        EXPECT_EQ(fileText(record), "files\n");
    }
}

TEST_F(ChosenSecretStoreTest, aRunKeepsItsChoiceWithoutARecord) {
    std::filesystem::create_directories(record + "/in the way");
    SessionWithKeyring session;
    ChosenSecretStore store(record, secrets);
    EXPECT_TRUE(store.add(service, "identity", key));
    session.keyring.stop();
    EXPECT_EQ(store.read(service, "identity").status, Status::unreadable);
}

}  // namespace
}  // namespace orvel
