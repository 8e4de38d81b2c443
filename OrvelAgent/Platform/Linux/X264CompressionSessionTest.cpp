#include "OrvelAgent/Platform/Linux/X264CompressionSession.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

#include <algorithm>
#include <cmath>

#include "OrvelAgent/Platform/Fake/H264Decoder.h"
#include "OrvelAgent/Platform/Fake/SyntheticScreen.h"

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace orvel {
namespace {

using Property = CompressionSession::Property;
using Scene = SyntheticScreen::Scene;
using Session = X264CompressionSession;

// A session and the decoder at the other end of it.
class Stream {
public:
    Stream(int width, int height, std::int64_t bitrate = 4'000'000, int slices = 1)
        : created(Session::make({width, height, true}, {slices})) {
        if (!created.session) std::abort();
        set(Property::averageBitRate, bitrate);
        set(Property::maxKeyFrameIntervalDuration, std::int64_t{4});
        session().prepare();
    }

    struct Coded {
        int status = 0;
        int calls = 0;  // of the handler
        bool isKeyframe = false;
        std::optional<std::int64_t> ptsMicros;
        Bytes data;
        std::vector<Bytes> parameterSets;
        std::optional<H264Decoder::Picture> decoded;
        double bits() const { return 8.0 * static_cast<double>(data.size()); }
    };
    // At the stream's time, which then moves on by a sixtieth of a second.
    Coded put(const std::shared_ptr<const PixelBuffer>& picture, bool forceKeyframe = false) {
        Coded coded;
        coded.status = session().encode(picture, time, forceKeyframe, [&](const auto& sample) {
            ++coded.calls;
            coded.isKeyframe = !sample.notSync;
            coded.ptsMicros = sample.ptsMicros;
            coded.data.assign(sample.data.begin(), sample.data.end());
            for (const auto set : sample.parameterSets)
                coded.parameterSets.emplace_back(set.begin(), set.end());
            if (!sample.data.empty())
                coded.decoded = decoder.decode(sample.parameterSets, sample.data);
        });
        time += 16'667us;
        return coded;
    }
    Coded putSharp(const std::shared_ptr<const PixelBuffer>& picture) {
        set(Property::quality, 1.0);
        auto coded = put(picture, true);
        set(Property::quality, 0.6);
        return coded;
    }

    void set(Property property, const CompressionSession::Value& value) {
        EXPECT_EQ(session().set(property, value), 0);
    }
    Session& session() { return static_cast<Session&>(*created.session); }

    MonotonicTime time{1000s};
    H264Decoder decoder;

private:
    CompressionSession::Created created;
};

std::vector<int> unitTypes(const Bytes& data) {
    std::vector<int> types;
    for (std::size_t at = 0; at + 4 < data.size();) {
        types.push_back(data[at + 4] & 31);
        at += 4 + loadBE32(&data[at]);
        EXPECT_LE(at, data.size());
    }
    return types;
}

// A copy of `picture` as the next of its source, brighter inside `area`, which it does not
// announce.
std::shared_ptr<FakePixelBuffer> withPatch(const PixelBuffer& picture, const Rect& area) {
    auto changed = std::make_shared<FakePixelBuffer>(static_cast<const FakePixelBuffer&>(picture));
    changed->sequence = picture.sequence + 1;
    changed->changed.clear();
    for (int y = area.y; y < area.y + area.height; ++y) {
        for (int x = area.x; x < area.x + area.width; ++x)
            changed->lumaPixels[static_cast<std::size_t>(y) * changed->lumaStride + x] ^= 0x40;
    }
    return changed;
}

struct SizeRow {
    const char* name;
    int width, height;
    std::int32_t want;
};
const SizeRow sizeRows[] = {
    {"empty", 0, 0, Session::invalidArgument},
    {"negative", -2, 16, Session::invalidArgument},
    {"odd width", 17, 16, Session::invalidArgument},
    {"odd height", 16, 17, Session::invalidArgument},
    {"too wide for x264", 16'400, 16, Session::encoderFailure},
    {"the smallest", 2, 2, 0},
    {"one block", 16, 16, 0},
    {"not whole blocks", 18, 34, 0},
    {"flat", 640, 2, 0},
    {"upright sliver", 2, 640, 0},
    {"a laptop's", 1366, 766, 0},
    {"a scaled one", 1920, 1246, 0},
};

CompressionSession::Created create(int width, int height) {
#if defined(__SANITIZE_ADDRESS__)
    // When x264 refuses it forgets its copy of the parameters; everything else is watched.
    const __lsan::ScopedDisabler disabled;
#endif
    return CompressionSession::create({width, height, true});
}

TEST(X264CompressionSession, takesEveryEvenSizeThatX264Takes) {
    for (const auto& row : sizeRows) {
        SCOPED_TRACE(row.name);
        const auto created = create(row.width, row.height);
        EXPECT_EQ(created.status, row.want);
        EXPECT_EQ(created.session != nullptr, row.want == 0);
        if (row.want != 0) continue;
        Stream stream(row.width, row.height);
        SyntheticScreen screen(row.width, row.height, Scene::typing);
        for (int i = 0; i < 3; ++i) {
            const auto picture = screen.next();
            const auto coded = stream.put(picture);
            ASSERT_TRUE(coded.decoded);
            EXPECT_EQ(coded.decoded->width, row.width);
            EXPECT_EQ(coded.decoded->height, row.height);
            EXPECT_GT(lumaPsnr(*picture, *coded.decoded), 30);
        }
    }
}

TEST(X264CompressionSession, aHugePictureComesInTwoSlices) {
    const auto created = CompressionSession::create({3840, 2160, true});
    ASSERT_TRUE(created.session);
    Bytes data;
    created.session->encode(
        SyntheticScreen(3840, 2160, Scene::still).next(), MonotonicTime(1s), false,
        [&](const auto& sample) { data.assign(sample.data.begin(), sample.data.end()); });
    EXPECT_THAT(unitTypes(data), ElementsAre(5, 5));
}

TEST(X264CompressionSession, theStreamSaysWhatItIs) {
    Stream stream(640, 360);
    const auto coded = stream.put(FakePixelBuffer::grey(640, 360, 1));
    ASSERT_THAT(coded.parameterSets, SizeIs(2));
    const auto& sps = coded.parameterSets[0];
    EXPECT_EQ(sps.at(0), 0x67);
    EXPECT_EQ(sps.at(1), 100) << "High";
    EXPECT_EQ(sps.at(2) & 0x0C, 0x0C) << "constrained";
    EXPECT_EQ(coded.parameterSets[1].at(0), 0x68);
    EXPECT_EQ(stream.decoder.colours(), (H264Decoder::Colours{1, 13, 6, false}));
    EXPECT_EQ(stream.decoder.delay(), 0);
}

TEST(X264CompressionSession, samplesAreSlicesBehindLengthsAndOnlyKeyframesHaveParameterSets) {
    for (int slices : {1, 2}) {
        SCOPED_TRACE(slices);
        Stream stream(640, 360, 4'000'000, slices);
        SyntheticScreen screen(640, 360, Scene::scroll);
        for (int i = 0; i < 8; ++i) {
            const auto coded = stream.put(screen.next(), i == 4);
            EXPECT_EQ(coded.calls, 1);
            EXPECT_EQ(coded.isKeyframe, i == 0 || i == 4);
            EXPECT_EQ(coded.parameterSets.size(), coded.isKeyframe ? 2u : 0u);
            EXPECT_EQ(unitTypes(coded.data), std::vector<int>(slices, coded.isKeyframe ? 5 : 1));
            ASSERT_TRUE(coded.decoded);
            EXPECT_EQ(coded.decoded->isKeyframe, coded.isKeyframe);
        }
    }
}

TEST(X264CompressionSession, aKeyframeComesAfterFourSecondsOfTheirTimes) {
    Stream stream(64, 64);
    SyntheticScreen screen(64, 64, Scene::typing);
    EXPECT_TRUE(stream.put(screen.next()).isKeyframe);
    stream.time = MonotonicTime(1003s);
    EXPECT_FALSE(stream.put(screen.next()).isKeyframe);
    stream.time = MonotonicTime(1004s);
    EXPECT_TRUE(stream.put(screen.next()).isKeyframe);
    stream.time = MonotonicTime(1006s);
    EXPECT_TRUE(stream.put(screen.next(), true).isKeyframe);
    stream.time = MonotonicTime(1002s);  // an old picture once more
    EXPECT_FALSE(stream.put(screen.next()).isKeyframe);
    stream.time = MonotonicTime(1009s);
    EXPECT_FALSE(stream.put(screen.next()).isKeyframe) << "4 s after the forced one at the most";
    stream.time = MonotonicTime(1010s);
    EXPECT_TRUE(stream.put(screen.next()).isKeyframe);
}

TEST(X264CompressionSession, handsTimesThroughAsTheyAre) {
    Stream stream(64, 64);
    SyntheticScreen screen(64, 64, Scene::typing);
    for (const std::int64_t micros : {5'000'123L, 7L, 0L, -9L, 5'000'124L}) {
        stream.time = MonotonicTime(std::chrono::microseconds(micros));
        EXPECT_EQ(stream.put(screen.next()).ptsMicros, micros);
    }
}

struct PropertyRow {
    const char* name;
    Property property;
    CompressionSession::Value value;
    std::int32_t want;
};
const PropertyRow propertyRows[] = {
    {"real time", Property::realTime, true, 0},
    {"real time as a number", Property::realTime, std::int64_t{1}, Session::invalidArgument},
    {"its profile", Property::profileLevel, std::string("H264_ConstrainedHigh_AutoLevel"), 0},
    {"the other one", Property::profileLevel, std::string("H264_ConstrainedBaseline_AutoLevel"), 0},
    {"one that it has not", Property::profileLevel, std::string("H264_Baseline_AutoLevel"),
     Session::unsupported},
    {"no reordering", Property::allowFrameReordering, false, 0},
    {"reordering", Property::allowFrameReordering, true, Session::unsupported},
    {"a bitrate", Property::averageBitRate, std::int64_t{84'000'000}, 0},
    {"no bits", Property::averageBitRate, std::int64_t{0}, Session::invalidArgument},
    {"beyond reason", Property::averageBitRate, std::int64_t{1} << 62, Session::invalidArgument},
    {"a frame rate", Property::expectedFrameRate, std::int64_t{60}, 0},
    {"no frames", Property::expectedFrameRate, std::int64_t{0}, Session::invalidArgument},
    {"an interval", Property::maxKeyFrameIntervalDuration, std::int64_t{4}, 0},
    {"none", Property::maxKeyFrameIntervalDuration, std::int64_t{0}, Session::invalidArgument},
    {"a quality", Property::quality, 0.6, 0},
    {"too good", Property::quality, 1.1, Session::invalidArgument},
    {"no number", Property::quality, std::nan(""), Session::invalidArgument},
};

TEST(X264CompressionSession, answersForEachProperty) {
    Stream stream(64, 64);
    for (const auto& row : propertyRows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(stream.session().set(row.property, row.value), row.want);
    }
}

// The profile as profile_idc and the constraint flags (ITU-T H.264, 7.4.2.1.1).
TEST(X264CompressionSession, hasTheProfileAskedForBeforeTheFirstPicture) {
    const struct {
        const char* profile;
        Bytes want;
        const char* other;
    } rows[] = {
        {"H264_ConstrainedHigh_AutoLevel", {100, 0x0C}, "H264_ConstrainedBaseline_AutoLevel"},
        {"H264_ConstrainedBaseline_AutoLevel", {66, 0xC0}, "H264_ConstrainedHigh_AutoLevel"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.profile);
        Stream stream(320, 180);
        stream.set(Property::profileLevel, std::string(row.other));
        stream.set(Property::profileLevel, std::string(row.profile));
        SyntheticScreen screen(320, 180, Scene::typing);
        for (int i = 0; i < 20; ++i) {
            const auto picture = screen.next();
            const auto coded = stream.put(picture);
            ASSERT_TRUE(coded.decoded);
            EXPECT_GT(lumaPsnr(*picture, *coded.decoded), 35);
            if (i > 0) continue;
            const auto& sps = coded.parameterSets.at(0);
            EXPECT_EQ(Bytes(sps.begin() + 1, sps.begin() + 3), row.want);
        }
        EXPECT_EQ(stream.session().set(Property::profileLevel, std::string(row.other)),
                  Session::unsupported);
        stream.set(Property::profileLevel, std::string(row.profile));
    }
}

TEST(X264CompressionSession, refusesWhatIsNoPictureOfItsAndGoesOn) {
    Stream stream(64, 64);
    SyntheticScreen screen(64, 64, Scene::typing);
    stream.put(screen.next());
    for (const auto& wrong : {std::shared_ptr<FakePixelBuffer>(), FakePixelBuffer::grey(64, 62, 2),
                              FakePixelBuffer::grey(128, 64, 2)}) {
        const auto coded = stream.put(wrong);
        EXPECT_EQ(coded.status, Session::invalidArgument);
        EXPECT_EQ(coded.calls, 0);
    }
    EXPECT_TRUE(stream.put(screen.next()).decoded);
    stream.session().invalidate();
    EXPECT_EQ(stream.put(screen.next()).status, Session::invalidSession);
    EXPECT_EQ(stream.session().prepare(), Session::invalidSession);
}

TEST(X264CompressionSession, mayBeInvalidatedByItsHandler) {
    Stream stream(64, 64);
    bool called = false;
    EXPECT_EQ(stream.session().encode(FakePixelBuffer::grey(64, 64, 1), MonotonicTime(1s), false,
                                      [&](const auto&) {
                                          called = true;
                                          stream.session().invalidate();
                                      }),
              0);
    EXPECT_TRUE(called);
}

struct PictureRow {
    Scene scene;
    double luma, chroma;  // least PSNR of any picture after the first half second, dB
};
const PictureRow pictureRows[] = {{Scene::still, 45, 45},  {Scene::typing, 45, 45},
                                  {Scene::scroll, 38, 38}, {Scene::video, 36, 38},
                                  {Scene::film, 32, 38},   {Scene::noise, 8, 8}};

TEST(X264CompressionSession, anotherDecoderSeesThePicturesThatWentIn) {
    for (const auto& row : pictureRows) {
        SCOPED_TRACE(SyntheticScreen::name(row.scene));
        Stream stream(640, 360, 2'000'000);
        SyntheticScreen screen(640, 360, row.scene);
        for (int i = 0; i < 90; ++i) {
            const auto picture = screen.next();
            const auto coded = stream.put(picture);
            ASSERT_EQ(coded.status, 0);
            if (coded.data.empty()) {
                EXPECT_EQ(row.scene, Scene::noise) << "left out";
                continue;
            }
            ASSERT_TRUE(coded.decoded) << i;
            if (i < 30) continue;
            ASSERT_GE(lumaPsnr(*picture, *coded.decoded), row.luma) << i;
            ASSERT_GE(chromaPsnr(*picture, *coded.decoded), row.chroma) << i;
        }
    }
}

TEST(X264CompressionSession, aChangeInsideTheAnnouncedRectanglesAppears) {
    Stream stream(640, 360);
    auto picture = SyntheticScreen(640, 360, Scene::still).next();
    stream.put(picture);
    for (const Rect& area : {Rect{0, 0, 16, 16},
                             {100, 100, 1, 1},
                             {15, 15, 2, 2},
                             {320, 40, 90, 70},
                             {639, 359, 1, 1}}) {
        auto next = withPatch(*picture, area);
        next->changed = {area};
        const auto coded = stream.put(next);
        EXPECT_GT(lumaPsnr(*next, *coded.decoded, area), 25) << "12 if it did not";
        EXPECT_GT(lumaPsnr(*next, *coded.decoded), 42);
        picture = next;
    }
}

// What the source does not announce is not looked at: that is what makes small changes cheap.
TEST(X264CompressionSession, followsTheRectanglesAndNothingElse) {
    const Rect announced{0, 0, 64, 64}, secret{320, 160, 64, 64};
    Stream stream(640, 360);
    const auto first = SyntheticScreen(640, 360, Scene::still).next();
    // Nothing may be left to improve, for which the encoder would look at the whole picture.
    stream.putSharp(first);
    const auto rest = [&] { stream.time += 1s; };
    rest();
    const auto second = withPatch(*withPatch(*first, announced), secret);
    second->sequence = first->sequence + 1;
    second->changed = {announced};
    auto coded = stream.put(second);
    EXPECT_GT(lumaPsnr(*second, *coded.decoded, announced), 32);
    EXPECT_GT(lumaPsnr(*first, *coded.decoded, secret), 32) << "still the old one";

    rest();
    const auto repeated = std::make_shared<FakePixelBuffer>(*second);
    coded = stream.put(repeated);
    EXPECT_LT(coded.data.size(), 300u) << "the same sequence number: nothing changed";
    EXPECT_GT(lumaPsnr(*first, *coded.decoded, secret), 32);

    const auto later = std::make_shared<FakePixelBuffer>(*second);
    later->sequence += 2;
    later->changed.clear();
    coded = stream.put(later);
    EXPECT_GT(lumaPsnr(*later, *coded.decoded, secret), 30)
        << "a number was missed: all is looked at";
}

TEST(X264CompressionSession, aForcedKeyframeLooksAtEverything) {
    const Rect secret{320, 160, 64, 64};
    Stream stream(640, 360);
    const auto first = SyntheticScreen(640, 360, Scene::still).next();
    stream.put(first);
    const auto second = withPatch(*first, secret);
    const auto coded = stream.put(second, true);
    EXPECT_TRUE(coded.isKeyframe);
    EXPECT_GT(lumaPsnr(*second, *coded.decoded, secret), 32);
}

TEST(X264CompressionSession, doesNotDriftOverThreeHundredPictures) {
    Stream stream(320, 192);
    stream.set(Property::maxKeyFrameIntervalDuration, std::int64_t{3600});
    SyntheticScreen screen(320, 192, Scene::typing);
    double first = 0;
    for (int i = 0; i < 300; ++i) {
        const auto picture = screen.next();
        const auto coded = stream.put(picture);
        ASSERT_TRUE(coded.decoded);
        const double psnr = lumaPsnr(*picture, *coded.decoded);
        if (i == 0) first = psnr;
        ASSERT_GT(psnr, first - 1) << i;
    }
}

TEST(X264CompressionSession, aSharpFrameIsSharpAndOutsideTheBudget) {
    Stream with(640, 360, 500'000), without(640, 360, 500'000);
    for (auto* stream : {&with, &without}) {
        stream->set(Property::quality, 0.6);
        SyntheticScreen film(640, 360, Scene::film);
        for (int i = 0; i < 60; ++i)
            stream->put(film.next());
    }
    const auto page = SyntheticScreen(640, 360, Scene::scroll).next();
    with.putSharp(page);  // the page comes at once
    const auto again =
        std::make_shared<FakePixelBuffer>(static_cast<const FakePixelBuffer&>(*page));
    const auto sharp = with.putSharp(again);
    EXPECT_TRUE(sharp.isKeyframe);
    EXPECT_EQ(with.session().lastQp(), Session::sharpQp);
    EXPECT_GE(lumaPsnr(*page, *sharp.decoded), 48);
    EXPECT_GE(chromaPsnr(*page, *sharp.decoded), 45);

    // The film goes on as if the sharp frames had not been.
    with.time = without.time += 1s;
    int largestDifference = 0;
    SyntheticScreen filmA(640, 360, Scene::film), filmB(640, 360, Scene::film);
    for (int i = 0; i < 60; ++i) {
        with.put(filmA.next());
        without.put(filmB.next());
        if (i > 10) {
            largestDifference = std::max(
                largestDifference, std::abs(with.session().lastQp() - without.session().lastQp()));
        }
    }
    EXPECT_LE(largestDifference, 2);
}

TEST(X264CompressionSession, afterASharpFrameNothingIsCoarserThanTheFloorOfItsQuality) {
    const auto coarsest = [](bool isBounded) {
        Stream stream(320, 192, 100'000);
        if (isBounded) stream.set(Property::quality, 0.6);
        SyntheticScreen noise(320, 192, Scene::noise);
        int highest = 0;
        for (int i = 0; i < 30; ++i) {
            stream.put(noise.next());
            highest = std::max(highest, stream.session().lastQp());
        }
        return highest;
    };
    EXPECT_EQ(coarsest(true), 43);
    EXPECT_EQ(coarsest(false), 51);
}

// What typing goes over improves while the typing goes on.
TEST(X264CompressionSession, whatWasCodedCoarselyImprovesByItself) {
    Stream stream(640, 360, 1'000'000);
    SyntheticScreen film(640, 360, Scene::film);
    for (int i = 0; i < 120; ++i)
        stream.put(film.next());
    SyntheticScreen page(640, 360, Scene::typing);
    double psnr = 0;
    for (int i = 0; i < 60; ++i) {
        auto picture =
            std::make_shared<FakePixelBuffer>(static_cast<const FakePixelBuffer&>(*page.next()));
        picture->sequence += 1000;
        const auto coded = stream.put(picture);
        ASSERT_TRUE(coded.decoded);
        psnr = lumaPsnr(*picture, *coded.decoded);
    }
    EXPECT_GT(psnr, 44);
}

TEST(X264CompressionSession, keepsTheBitrateOfAFilmAlsoWhenItChanges) {
    Stream stream(480, 272, 600'000);
    SyntheticScreen film(480, 272, Scene::film);
    const auto megabits = [&](int pictures) {
        double bits = 0, largest = 0;
        for (int i = 0; i < pictures; ++i) {
            const auto coded = stream.put(film.next());
            bits += coded.bits();
            if (!coded.isKeyframe) largest = std::max(largest, coded.bits());
        }
        EXPECT_LT(largest, 0.3 * 600'000);
        return bits * 60 / pictures / 1e6;
    };
    megabits(60);
    EXPECT_NEAR(megabits(240), 0.6, 0.06);
    stream.set(Property::averageBitRate, std::int64_t{300'000});
    megabits(60);
    EXPECT_NEAR(megabits(240), 0.3, 0.03);
}

TEST(X264CompressionSession, twoHundredSessionsLeaveNothingBehind) {
    SyntheticScreen screen(160, 96, Scene::typing);
    const auto picture = screen.next();
    for (int i = 0; i < 200; ++i) {
        Stream stream(160, 96, 4'000'000, 1 + i % 2);
        EXPECT_EQ(stream.put(picture).calls, 1);
        if (i % 3 == 0) stream.session().invalidate();
    }
}

}  // namespace
}  // namespace orvel
