// The real program on a real X server, its stream judged by ffmpeg.

#include <array>
#include <fstream>

#include "Tests/Desktop/AgentDesktop.h"
#include "Tests/Support/XDesk.h"

using namespace std::chrono_literals;

namespace orvel {
namespace {

using phone::PhoneConnection;
using Colour = std::array<int, 3>;

// What a phone has received, as a file that other decoders read.
class Stream {
public:
    void add(const VideoFormat& format) {
        for (const Bytes& set : format.parameterSets)
            addUnit(set);
    }
    void add(const VideoFrame& frame) {
        ByteView rest = frame.data;
        while (rest.size() >= 4) {
            const std::size_t length = loadBE32(rest.data());
            ASSERT_LE(length, rest.size() - 4);
            addUnit(rest.subspan(4, length));
            rest = rest.subspan(4 + length);
        }
        EXPECT_TRUE(rest.empty());
    }
    // The last picture, decoded by ffmpeg: rows of red, green and blue.
    Bytes lastPicture(int pictureWidth, int pictureHeight) const {
        TemporaryFolder folder;
        std::ofstream(folder / "stream.h264", std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
        BackgroundProcess decoder(
            {.command = {"ffmpeg", "-v", "error", "-i", folder / "stream.h264", "-f", "rawvideo",
                         "-pix_fmt", "rgb24", folder / "pictures"},
             .outputFile = folder / "log"});
        EXPECT_EQ(decoder.wait(60s), 0) << fileText(folder / "log");
        EXPECT_EQ(fileText(folder / "log"), "");
        const std::string pictures = fileText(folder / "pictures");
        const auto size = static_cast<std::size_t>(pictureWidth) * pictureHeight * 3;
        if (pictures.size() < size || pictures.size() % size != 0) {
            ADD_FAILURE() << "pictures of another size: " << pictures.size();
            return Bytes(size);
        }
        const auto last = bytesOf(pictures).last(size);
        return Bytes(last.begin(), last.end());
    }

private:
    void addUnit(ByteView unit) {
        append(bytes, Bytes{0, 0, 0, 1});
        append(bytes, unit);
    }
    Bytes bytes;
};

Colour colourAt(const Bytes& picture, int x, int y, int pictureWidth = 640) {
    const std::size_t at = (static_cast<std::size_t>(y) * pictureWidth + x) * 3;
    return {picture[at], picture[at + 1], picture[at + 2]};
}

void expectNear(const Colour& colour, const Colour& want, const char* where) {
    for (int i = 0; i < 3; ++i)
        EXPECT_NEAR(colour[i], want[i], 8) << where << " channel " << i;
}

class DesktopTest : public AgentDesktop {
protected:
    // Receives until the screen is at rest and its sharp picture is there: then no more pictures
    // come. What precedes the first format cannot be decoded by itself and is left out.
    void receiveUntilQuiet(PhoneConnection& connection, Stream& stream) {
        bool hasFormat = false;
        const auto end = std::chrono::steady_clock::now() + 30s;
        auto lastPicture = std::chrono::steady_clock::now();
        while (std::chrono::steady_clock::now() - lastPicture < 1500ms) {
            const auto event = connection.next(1500ms);
            if (!event) break;
            ASSERT_LT(std::chrono::steady_clock::now(), end);
            if (const auto* format = event->as<VideoFormat>()) {
                hasFormat = true;
                stream.add(*format);
            } else if (const auto* frame = event->as<VideoFrame>()) {
                lastPicture = std::chrono::steady_clock::now();
                if (hasFormat) stream.add(*frame);
            }
        }
        EXPECT_TRUE(hasFormat);
    }

    std::unique_ptr<XDesk> desk = std::make_unique<XDesk>(server.display());
};

TEST_F(DesktopTest, ffmpegSeesWhatWasDrawn) {
    desk->movePointer(width / 2, height / 2);
    desk->fill({0, 0, 320, 240}, 0xC02020);
    desk->fill({320, 0, 320, 240}, 0x20A040);
    desk->fill({0, 240, 320, 240}, 0x3040D0);
    desk->fill({320, 240, 320, 240}, 0xE8E8E8);
    startAgent();
    const auto connection = admitted();
    EXPECT_EQ(welcome->videoWidth, width);
    EXPECT_EQ(welcome->videoHeight, height);
    ASSERT_EQ(welcome->displays->size(), 1u);
    Stream stream;
    receiveUntilQuiet(*connection, stream);
    const Bytes first = stream.lastPicture(width, height);
    expectNear(colourAt(first, 100, 100), {0xC0, 0x20, 0x20}, "top left");
    expectNear(colourAt(first, 500, 100), {0x20, 0xA0, 0x40}, "top right");
    expectNear(colourAt(first, 100, 400), {0x30, 0x40, 0xD0}, "bottom left");
    expectNear(colourAt(first, 500, 400), {0xE8, 0xE8, 0xE8}, "bottom right");

    desk->fill({80, 80, 40, 40}, 0xFFE000);
    receiveUntilQuiet(*connection, stream);
    expectNear(colourAt(stream.lastPicture(width, height), 100, 100), {0xFF, 0xE0, 0x00},
               "changed");
}

TEST_F(DesktopTest, thePhoneChoosesAmongMonitors) {
    desk->setMonitor("left", {0, 0, 320, 480}, true);
    desk->setMonitor("right", {320, 0, 320, 480});
    desk->fill({0, 0, 320, 480}, 0xC02020);
    desk->fill({320, 0, 320, 480}, 0x20A040);
    desk->movePointer(2, 2);
    startAgent();
    const auto connection = admitted();
    ASSERT_EQ(welcome->displays->size(), 2u);
    std::uint32_t other = 0;
    for (const auto& display : *welcome->displays) {
        if (display.id != *welcome->displayID) other = display.id;
    }
    connection->send({Control::SelectDisplay{other}});
    const auto fresh = connection->waitFor<Welcome>();
    ASSERT_TRUE(fresh);
    EXPECT_EQ(fresh->displayID, other);
    EXPECT_EQ(fresh->videoWidth, 320);
    Stream stream;
    receiveUntilQuiet(*connection, stream);
    expectNear(colourAt(stream.lastPicture(320, 480), 160, 240, 320), {0x20, 0xA0, 0x40}, "right");
}

TEST_F(DesktopTest, aServerThatGoesEndsTheLinkAndOneThatComesBackIsCaptured) {
    startAgent();
    auto connection = admitted();
    ASSERT_TRUE(agent->readUntil(R"({"status":{"connected")"));
    desk.reset();
    server.kill();
    EXPECT_TRUE(connection->waitClosed());
    EXPECT_TRUE(agent->readUntil(R"({"status":{"waiting":{}}})"));
    connection = std::make_unique<PhoneConnection>(identity);
    ASSERT_TRUE(connection->connect("127.0.0.1", port));
    ASSERT_TRUE(connection->secure());
    connection->send({connection->hello("Telefon")});
    const auto rejected = connection->waitFor<Control::Rejected>();
    ASSERT_TRUE(rejected);
    EXPECT_EQ(rejected->reason, Rejection::permissionsMissing);

    server.restart();
    desk = std::make_unique<XDesk>(server.display());
    desk->fill({0, 0, width, height}, 0x20A040);
    desk->movePointer(2, 2);
    connection = admitted();
    Stream stream;
    receiveUntilQuiet(*connection, stream);
    expectNear(colourAt(stream.lastPicture(width, height), 300, 300), {0x20, 0xA0, 0x40},
               "new server");
}

TEST_F(DesktopTest, aPhoneThatNeverReadsLeavesMemoryFlatAndGoesOnWithAKeyframe) {
    startAgent();
    const auto connection = admitted(64 * 1024);
    // Colourful noise that moves, so that frames are large.
    std::vector<std::uint32_t> noise(static_cast<std::size_t>(width) * height);
    std::uint32_t seed = 1;
    const auto moveFor = [&](std::chrono::seconds duration) {
        const auto end = std::chrono::steady_clock::now() + duration;
        while (std::chrono::steady_clock::now() < end) {
            for (auto& pixel : noise)
                pixel = seed = seed * 1664525 + 1013904223;
            desk->put({0, 0, width, height}, noise);
        }
    };
    connection->pauseReading(true);
    moveFor(2s);
    const long before = agent->residentKilobytes();
    moveFor(4s);
    // Hundreds of pictures that were kept would be above 100 MB; a sanitizer keeps what was freed.
    EXPECT_LT(agent->residentKilobytes() - before, 40'000);
    desk->fill({0, 0, width, height}, 0x3040D0);
    desk->movePointer(2, 2);
    const auto received = connection->counts();
    connection->pauseReading(false);
    Stream stream;
    receiveUntilQuiet(*connection, stream);
    expectNear(colourAt(stream.lastPicture(width, height), 300, 300), {0x30, 0x40, 0xD0},
               "at last");
    // Of hundreds of frames those that were on their way came, and the newest.
    EXPECT_LT(connection->counts().videoFrames - received.videoFrames, 60u);
}

TEST_F(DesktopTest, thePictureFollowsPairingsAcrossRestarts) {
    startAgent();
    admitted().reset();
    agent->signal(SIGKILL);
    agent->wait();
    startAgent();
    PhoneConnection again(identity);
    ASSERT_TRUE(again.connect("127.0.0.1", port));
    ASSERT_TRUE(again.secure());
    again.send({again.hello("Telefon")});  // no pin: it is known
    EXPECT_TRUE(again.waitFor<Welcome>());
}

}  // namespace
}  // namespace orvel
