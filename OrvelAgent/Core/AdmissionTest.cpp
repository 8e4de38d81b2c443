#include "OrvelAgent/Core/Admission.h"

#include <gtest/gtest.h>

#include "OrvelAgent/Core/PairedDevices.h"
#include "OrvelAgent/Core/VideoFlow.h"
#include "OrvelKit/Base/FakeDefaults.h"

namespace orvel {
namespace {

TEST(Admission, judgesInTheOrderOfItsTable) {
    const Admission::Facts stranger{true, true, "phone", false, "123456", true};
    const Hello withPin{2, "phone", "Telefon", "123456", 1920, {}};
    struct Row {
        const char* name;
        std::function<void(Hello&, Admission::Facts&)> change;
        Admission::Verdict want;
    };
    const Row rows[] = {
        {"right code", [](auto&, auto&) {}, Admission::NewPairing{}},
        {"newer phone", [](auto& h, auto&) { h.version = 3; }, Admission::NewPairing{}},
        {"old phone before everything else",
         [](auto& h, auto& f) { h.version = 1, f.screenRecording = false, h.deviceID = ""; },
         Rejection::phoneOutdated},
        {"no screen recording, even if known",
         [](auto&, auto& f) { f.screenRecording = false, f.isTrusted = true; },
         Rejection::permissionsMissing},
        {"no accessibility", [](auto&, auto& f) { f.accessibility = false; },
         Rejection::permissionsMissing},
        {"somebody else's ID, even if known",
         [](auto& h, auto& f) { h.deviceID = "other", f.isTrusted = true; },
         Rejection::pinRequired},
        {"no key", [](auto&, auto& f) { f.deviceID.reset(); }, Rejection::pinRequired},
        {"known without a pin", [](auto& h, auto& f) { h.pin.reset(), f.isTrusted = true; },
         Admission::KnownPhone{}},
        {"known with a wrong pin", [](auto& h, auto& f) { h.pin = "0", f.isTrusted = true; },
         Admission::KnownPhone{}},
        {"no code", [](auto&, auto& f) { f.pairingCode.reset(); }, Rejection::pinRequired},
        {"no peer key", [](auto&, auto& f) { f.hasPeerKey = false; }, Rejection::pinRequired},
        {"no pin", [](auto& h, auto&) { h.pin.reset(); }, Rejection::pinRequired},
        {"wrong pin", [](auto& h, auto&) { h.pin = "123457"; }, Rejection::wrongPin},
        {"same number, other digits", [](auto& h, auto&) { h.pin = "0123456"; },
         Rejection::wrongPin},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Hello hello = withPin;
        Admission::Facts facts = stranger;
        row.change(hello, facts);
        EXPECT_EQ(Admission::judge(hello, facts), row.want);
    }
}

TEST(Admission, clampsThePixelBudget) {
    const std::pair<std::int64_t, int> rows[] = {
        {500, 960}, {5000, 3840}, {1280, 1280}, {INT64_MIN, 960}, {INT64_MAX, 3840}};
    for (const auto& [asked, given] : rows)
        EXPECT_EQ(Admission::streamPixels(asked), given);
}

TEST(VideoFlow, theEighthDeltaFrameIsDroppedAndNothingPassesUntilAKeyframe) {
    VideoFlow flow;
    flow.reset();
    using enum VideoFlow::Decision;
    for (int i = 0; i < 7; ++i)
        EXPECT_EQ(flow.offer(false), send);
    EXPECT_EQ(flow.offer(false), dropAndRequestKeyframe);
    EXPECT_EQ(flow.offer(false), drop);
    for (int i = 0; i < 7; ++i)
        flow.completed(flow.token());
    EXPECT_EQ(flow.offer(false), drop);
    EXPECT_EQ(flow.offer(true), send);
    EXPECT_EQ(flow.offer(false), send);
}

TEST(VideoFlow, aCompletionCountsForItsAdmissionOnly) {
    VideoFlow flow;
    flow.reset();
    flow.offer(true);
    const auto before = flow.token();
    flow.reset();
    flow.offer(true);
    flow.completed(before);
    EXPECT_EQ(flow.outstanding(), 1);
}

TEST(PairedDevices, listsTheNewestFirstAndThoseNeverSeenLast) {
    FakeDefaults defaults;
    PairedDevices devices(defaults);
    const WallTime now{std::chrono::seconds(1'800'000'000)};
    devices.trust("never", Bytes(32), now);
    devices.trust("old", Bytes(32), now);
    devices.trust("new", Bytes(32), now);
    devices.wasAdmitted("old", "Eski", now + std::chrono::seconds(1));
    devices.wasAdmitted("new", "Yeni", now + std::chrono::seconds(2));
    devices.wasAdmitted("stranger", "Yabancı", now);
    const std::vector<PairedDevice> want = {{"new", "Yeni", now, now + std::chrono::seconds(2)},
                                            {"old", "Eski", now, now + std::chrono::seconds(1)},
                                            {"never", "Adı bilinmeyen telefon", now, std::nullopt}};
    EXPECT_EQ(devices.list(), want);
}

TEST(PairedDevices, forgettingAllKeepsNamesForWhoPairsAgain) {
    FakeDefaults defaults;
    PairedDevices devices(defaults);
    const WallTime first{std::chrono::seconds(1'800'000'000)},
        again = first + std::chrono::hours(1);
    devices.trust("a", Bytes(32, 1), first);
    devices.wasAdmitted("a", "Ada", first);
    devices.forgetAll();
    EXPECT_TRUE(devices.list().empty());
    devices.trust("a", Bytes(32, 1), again);
    EXPECT_EQ(devices.list(), (std::vector<PairedDevice>{{"a", "Ada", again, first}}));
    devices.forget("a");
    devices.trust("a", Bytes(32, 1), again);
    EXPECT_EQ(devices.list().at(0).name, "Adı bilinmeyen telefon");
}

TEST(PairedDevices, foreignContentCountsAsEmpty) {
    FakeDefaults defaults;
    PairedDevices devices(defaults);
    defaults.set("trustedKeys", "text");
    defaults.set("lastSeen", true);
    EXPECT_TRUE(devices.list().empty());
    EXPECT_FALSE(devices.isTrusted("a"));
    devices.trust("a", Bytes(32), {});
    EXPECT_TRUE(devices.isTrusted("a"));
}

}  // namespace
}  // namespace orvel
