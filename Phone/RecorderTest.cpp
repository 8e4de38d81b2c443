#include "Phone/Recorder.h"

#include <gmock/gmock.h>

#include <opus/opus.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "OrvelKit/Wire/AudioFormat.h"
#include "Phone/VideoForTests.h"
#include "Tests/Support/BackgroundProcess.h"
#include "Tests/Support/TemporaryFolder.h"

namespace orvel::phone {

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

const MonotonicTime start{std::chrono::hours(5)};

struct Film {
    int frames = 0;  // that decode
    double seconds = 0;
    int width = 0, height = 0;
};

// In the eyes of another program, which decodes all of it.
Film play(const std::string& path) {
    const TemporaryFolder folder;
    BackgroundProcess probe({.command = {"ffprobe", "-v", "error", "-count_frames", "-show_entries",
                                         "stream=width,height,nb_read_frames:format=duration",
                                         "-of", "default=nw=1", path},
                             .outputFile = folder / "out"});
    EXPECT_EQ(probe.wait(), 0) << fileText(folder / "out");
    const std::string said = fileText(folder / "out");
    const auto value = [&](const std::string& key) {
        const auto at = said.find(key + "=");
        return at == std::string::npos ? 0.0 : std::atof(said.c_str() + at + key.size() + 1);
    };
    return {int(value("nb_read_frames")), value("duration"), int(value("width")),
            int(value("height"))};
}

TEST(Recorder, filmTimeIsTimeOfArrival) {
    const TemporaryFolder folder;
    const std::string path = folder / "film.mp4";
    VideoForTests video(320, 240);
    Recorder recorder(path);
    ASSERT_TRUE(recorder.add(video.format, start));
    for (int i = 0; i < 60; ++i) {
        // The agent's stamps stand still and step back; that is not to be seen in the film.
        const auto frame = video.grey(static_cast<std::uint8_t>(20 + 3 * i), i == 0, 1000 - i / 2);
        ASSERT_TRUE(recorder.add(frame, start + i * 50ms));
    }
    ASSERT_TRUE(recorder.finish(start + 4s));
    EXPECT_EQ(recorder.frames(), 60u);
    EXPECT_THAT(recorder.files(), ElementsAre(path));
    const Film film = play(path);
    EXPECT_EQ(film.frames, 60);
    EXPECT_EQ(film.width, 320);
    EXPECT_EQ(film.height, 240);
    EXPECT_NEAR(film.seconds, 4, 0.01) << "the last picture stands until the end";
}

TEST(Recorder, framesThatArriveTogetherAreAllThere) {
    const TemporaryFolder folder;
    const std::string path = folder / "film.mp4";
    VideoForTests video(64, 64);
    Recorder recorder(path);
    recorder.add(video.format, start);
    for (int i = 0; i < 20; ++i)
        ASSERT_TRUE(recorder.add(video.grey(100, i == 0), start + i / 10 * 500ms));
    ASSERT_TRUE(recorder.finish(start + 1s));
    const Film film = play(path);
    EXPECT_EQ(film.frames, 20);
    EXPECT_NEAR(film.seconds, 1, 0.01);
}

TEST(Recorder, whatComesBeforeTheFirstKeyframeIsLeftOut) {
    const TemporaryFolder folder;
    const std::string path = folder / "film.mp4";
    VideoForTests video(64, 64);
    const auto key = video.grey(20, true), delta = video.grey(50);
    Recorder recorder(path);
    EXPECT_TRUE(recorder.add(key, start)) << "no format yet";
    EXPECT_TRUE(recorder.add(video.format, start));
    EXPECT_TRUE(recorder.add(delta, start));
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_TRUE(recorder.add(key, start));
    EXPECT_TRUE(recorder.add(delta, start + 100ms));
    EXPECT_TRUE(recorder.finish(start + 200ms));
    EXPECT_EQ(play(path).frames, 2);
}

TEST(Recorder, anotherSizeStartsAnotherFile) {
    const TemporaryFolder folder;
    const std::string path = folder / "my.film.mp4";
    Recorder recorder(path);
    MonotonicTime time = start;
    for (const int width : {320, 64, 128}) {
        VideoForTests video(width, 64);
        for (int i = 0; i < 10; ++i) {
            recorder.add(video.format, time);
            recorder.add(video.grey(100, i == 0), time);
            time += 100ms;
        }
    }
    ASSERT_TRUE(recorder.finish(time));
    EXPECT_THAT(recorder.files(),
                ElementsAre(path, folder / "my.film-2.mp4", folder / "my.film-3.mp4"));
    const int widths[] = {320, 64, 128};
    for (std::size_t i = 0; i < 3; ++i) {
        const Film film = play(recorder.files()[i]);
        EXPECT_EQ(film.width, widths[i]);
        EXPECT_EQ(film.frames, 10);
        EXPECT_NEAR(film.seconds, 1, 0.01);
    }
}

TEST(Recorder, aFilmThatWasNotFinishedPlaysUpToItsLastFragment) {
    const TemporaryFolder folder;
    const std::string path = folder / "film.mp4", copy = folder / "copy.mp4";
    VideoForTests video(64, 64);
    Recorder recorder(path);
    recorder.add(video.format, start);
    for (int i = 0; i < 100; ++i)
        recorder.add(video.grey(static_cast<std::uint8_t>(20 + 2 * i), i == 0), start + i * 50ms);
    std::filesystem::copy_file(path, copy);  // as the disk is when the process is killed now
    const Film film = play(copy);
    EXPECT_GE(film.frames, 60);
    EXPECT_GE(film.seconds, 3);
}

// A tone of 1 kHz at half the full loudness, as an agent sends it.
class ToneForTests {
public:
    ToneForTests()
        : encoder(opus_encoder_create(OpusFormat::sampleRate, OpusFormat::channels,
                                      OPUS_APPLICATION_AUDIO, nullptr)) {}
    ~ToneForTests() { opus_encoder_destroy(encoder); }
    ToneForTests(const ToneForTests&) = delete;
    ToneForTests& operator=(const ToneForTests&) = delete;

    AudioPacket next() {
        float pcm[2 * OpusFormat::framesPerPacket];
        for (float* sample = pcm; sample < std::end(pcm); sample += 2) {
            const double turns = 1000.0 * double(frame++) / OpusFormat::sampleRate;
            sample[0] = sample[1] = float(0.5 * std::sin(2 * 3.14159265358979 * turns));
        }
        Bytes opus(1500);
        const int length = opus_encode_float(encoder, pcm, OpusFormat::framesPerPacket, opus.data(),
                                             static_cast<opus_int32>(opus.size()));
        opus.resize(static_cast<std::size_t>(length));
        return {++sequence, opus};
    }

private:
    OpusEncoder* const encoder;
    std::uint64_t frame = 0;
    std::uint32_t sequence = 0;
};

// What another program decodes of the sound: the left channel at 48 kHz.
std::vector<float> listen(const std::string& path) {
    const TemporaryFolder folder;
    BackgroundProcess ffmpeg({.command = {"ffmpeg", "-v", "warning", "-xerror", "-i", path, "-map",
                                          "0:a", "-f", "f32le", folder / "pcm"},
                              .outputFile = folder / "out"});
    EXPECT_EQ(ffmpeg.wait(), 0) << fileText(folder / "out");
    EXPECT_EQ(fileText(folder / "out"), "");
    const std::string bytes = fileText(folder / "pcm");
    std::vector<float> samples(bytes.size() / (2 * sizeof(float)));
    for (std::size_t i = 0; i < samples.size(); ++i)
        std::memcpy(&samples[i], bytes.data() + 2 * i * sizeof(float), sizeof(float));
    return samples;
}

// Root mean square from one moment to another, in seconds.
double loudness(const std::vector<float>& samples, double from, double to) {
    double sum = 0;
    const auto first = static_cast<std::size_t>(from * 48000),
               last = std::min(static_cast<std::size_t>(to * 48000), samples.size());
    for (std::size_t i = first; i < last; ++i)
        sum += double(samples[i]) * samples[i];
    return last > first ? std::sqrt(sum / double(last - first)) : 0;
}

TEST(Recorder, soundIsHeardWhereItBelongs) {
    constexpr double tone = 0.5 / 1.4142135623730951;
    for (const char* ending : {".mp4", ".mkv"}) {
        SCOPED_TRACE(ending);
        const TemporaryFolder folder;
        const std::string path = folder / "film" + ending;
        VideoForTests video(64, 64);
        ToneForTests sound;
        Recorder recorder(path, Recorder::Sound::recorded);
        recorder.add(video.format, start);
        EXPECT_TRUE(recorder.add(sound.next(), start - 1s)) << "before the film";
        for (int i = 0; i < 300; ++i) {  // six seconds
            const MonotonicTime time = start + i * 20ms;
            if (i % 5 == 0) recorder.add(video.grey(100, i == 0), time);
            // The sound begins after a second, loses four packets and ends after four.
            if (i < 50 || i >= 200) continue;
            const AudioPacket packet = sound.next();
            const bool isLost = i >= 100 && i < 104;
            ASSERT_TRUE(isLost || recorder.add(packet, time));
        }
        ASSERT_TRUE(recorder.finish(start + 6s));
        const auto heard = listen(path);
        EXPECT_NEAR(double(heard.size()) / 48000, 6, 0.05);
        EXPECT_LT(loudness(heard, 0, 0.9), 1e-3);
        EXPECT_NEAR(loudness(heard, 1.1, 1.9), tone, 0.02);
        EXPECT_NEAR(loudness(heard, 2.2, 3.9), tone, 0.02);
        EXPECT_LT(loudness(heard, 4.1, 6), 1e-3);
        EXPECT_NEAR(play(path).seconds, 6, 0.05);
    }
}

TEST(Recorder, aFilmWithoutAnySoundPlaysWhenItIsCutOff) {
    const TemporaryFolder folder;
    const std::string path = folder / "film.mp4", copy = folder / "copy.mp4";
    VideoForTests video(64, 64);
    Recorder recorder(path, Recorder::Sound::recorded);
    recorder.add(video.format, start);
    for (int i = 0; i < 100; ++i)
        recorder.add(video.grey(100, i == 0), start + i * 50ms);
    std::filesystem::copy_file(path, copy);  // as the disk is when the process is killed now
    EXPECT_GE(play(copy).frames, 60);
    EXPECT_GE(listen(copy).size(), 2u * 48000);
}

TEST(Recorder, aFileThatCannotBeWrittenIsSaid) {
    const TemporaryFolder folder;
    VideoForTests video(64, 64);
    Recorder recorder(folder / "no/such/folder.mp4");
    EXPECT_TRUE(recorder.add(video.format, start));
    EXPECT_FALSE(recorder.add(video.grey(20, true), start));
    EXPECT_NE(recorder.problem(), "");
    EXPECT_FALSE(recorder.add(video.grey(20, true), start));
    EXPECT_FALSE(recorder.finish(start));

    Recorder full("/dev/full");
    full.add(video.format, start);
    bool went = true;
    for (int i = 0; i < 200; ++i)
        went = full.add(video.grey(100, true), start + i * 100ms);
    EXPECT_FALSE(went);
    EXPECT_NE(full.problem(), "");
}

}  // namespace

}  // namespace orvel::phone
