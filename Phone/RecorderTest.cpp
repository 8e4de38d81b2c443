#include "Phone/Recorder.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>

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
