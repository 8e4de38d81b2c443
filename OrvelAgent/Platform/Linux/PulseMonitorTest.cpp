#include "OrvelAgent/Platform/Linux/PulseMonitor.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <opus.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <future>
#include <mutex>
#include <optional>

#include "OrvelAgent/Media/AudioEncoder.h"
#include "Tests/Support/SoundServer.h"
#include "Tests/Support/Tone.h"

using namespace std::chrono_literals;

namespace orvel {
namespace {

constexpr double pi = std::numbers::pi;

// A monitor on its queue, and the newest second of the left side of what it hears.
class Listening {
public:
    explicit Listening(const std::string& server)
        : monitor(std::make_shared<PulseMonitor>(queue, server)) {}
    ~Listening() { stop(); }

    void start() {
        onQueue([this] { monitor->start([this](const auto& samples) { receive(samples); }); });
    }
    void stop() {
        onQueue([this] { monitor->stop(); });
    }
    template <class Body>
    void onQueue(Body body) {
        std::promise<void> done;
        queue.post([&] {
            body();
            done.set_value();
        });
        done.get_future().wait();
    }

    // Whether that tone was there, unbroken, for the last fifth of a second, at that rate.
    bool hears(double frequency, int wantedRate) {
        const std::lock_guard hold(mutex);
        const auto length = static_cast<std::size_t>(wantedRate / 5);
        if (rate != wantedRate || recent.size() < length) return false;
        const std::span<const double> piece(recent.data() + recent.size() - length, length);
        return std::abs(std::abs(toneIn(piece, frequency, rate)) - 0.5) < 0.01;
    }
    bool comesToHear(double frequency, int wantedRate = 48'000) {
        return eventually([&] { return hears(frequency, wantedRate); });
    }
    std::size_t pieces() {
        const std::lock_guard hold(mutex);
        return count;
    }

    SerialQueue queue{"orvel.audio"};
    const std::shared_ptr<PulseMonitor> monitor;

private:
    void receive(const AudioSamples& samples) {
        queue.assertCurrent();
        const std::lock_guard hold(mutex);
        ASSERT_EQ(samples.format.channels, 2);
        ASSERT_EQ(samples.format.sample, PcmFormat::Sample::float32);
        ASSERT_TRUE(samples.format.isInterleaved);
        ASSERT_EQ(samples.buffers[0].size(), samples.frameCount * 2 * sizeof(float));
        if (rate != static_cast<int>(samples.format.sampleRate)) recent.clear();
        rate = static_cast<int>(samples.format.sampleRate);
        for (std::size_t frame = 0; frame < samples.frameCount; ++frame) {
            float left = 0;
            std::memcpy(&left, samples.buffers[0].data() + frame * 2 * sizeof left, sizeof left);
            recent.push_back(left);
        }
        if (recent.size() > static_cast<std::size_t>(rate))
            recent.erase(recent.begin(), recent.end() - rate);
        ++count;
    }

    std::mutex mutex;
    int rate = 0;
    std::vector<double> recent;
    std::size_t count = 0;
};

// What the process writes to stderr goes to a file for a while.
class RedirectedStderr {
public:
    RedirectedStderr() {
        std::fflush(stderr);
        const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        dup2(file, STDERR_FILENO);
        close(file);
    }
    ~RedirectedStderr() {
        std::fflush(stderr);
        dup2(before, STDERR_FILENO);
        close(before);
    }
    RedirectedStderr(const RedirectedStderr&) = delete;
    RedirectedStderr& operator=(const RedirectedStderr&) = delete;
    std::string text() const { return fileText(path); }

private:
    const TemporaryFolder folder;
    const std::string path = folder / "stderr";
    const int before = dup(STDERR_FILENO);
};

class PulseMonitorTest : public testing::Test {
protected:
    void SetUp() override {
        if (!SoundServer::isInstalled()) GTEST_SKIP() << "the sound server for tests is missing";
        server.emplace();
    }
    std::optional<SoundServer> server;
};

TEST_F(PulseMonitorTest, followsTheDefaultOutput) {
    server->addOutput("first");
    server->addOutput("second", 44'100);
    server->playTone("first", 1000);
    server->playTone("second", 400);
    Listening listening(server->address());
    listening.start();
    ASSERT_TRUE(listening.comesToHear(1000));
    // The server moves the players along: it is the rate that tells the outputs apart.
    server->makeDefault("second");
    EXPECT_TRUE(listening.comesToHear(400, 44'100));
    server->removeOutput("second");
    EXPECT_TRUE(listening.comesToHear(1000));
    server->removeOutput("first");
    server->addOutput("third", 32'000, 1);
    server->playTone("third", 2000);
    EXPECT_TRUE(listening.comesToHear(2000, 32'000));
    EXPECT_EQ(server->listeners(), 1);
    listening.stop();
    EXPECT_TRUE(eventually([&] { return server->listeners() == 0; }));
}

TEST_F(PulseMonitorTest, isBackWhenTheServerIs) {
    server->addOutput("first");
    server->playTone("first", 1000);
    Listening listening(server->address());
    listening.start();
    ASSERT_TRUE(listening.comesToHear(1000));
    server->kill();
    server->start();
    server->addOutput("second");
    server->playTone("second", 400);
    EXPECT_TRUE(listening.comesToHear(400));
}

TEST_F(PulseMonitorTest, saysOnceThatThereIsNoSoundAndWaitsForIt) {
    server->kill();
    const RedirectedStderr said;
    Listening listening(server->address());
    listening.start();
    EXPECT_TRUE(eventually([&] { return !said.text().empty(); }));
    for (int round = 0; round < 10; ++round) {
        listening.stop();
        listening.start();
    }
    server->start();
    server->addOutput("first");
    server->playTone("first", 1000);
    EXPECT_TRUE(listening.comesToHear(1000));
    EXPECT_EQ(said.text(),
              "orvel: the sound cannot be captured, only the picture: Connection refused\n");
}

TEST_F(PulseMonitorTest, stopsAtAnyMoment) {
    server->addOutput("first");
    server->playTone("first", 1000);
    Listening listening(server->address());
    for (int round = 0; round < 40; ++round) {
        listening.start();
        // The moments between the steps of connecting.
        for (int step = 0; step < round * 4; ++step)
            listening.onQueue([] {});
        listening.stop();
        const std::size_t before = listening.pieces();
        listening.onQueue([] {});
        ASSERT_EQ(listening.pieces(), before);
    }
    // Inside what it calls, too, and started again there.
    std::promise<void> received;
    listening.onQueue([&] {
        listening.monitor->start([&](const auto&) {
            listening.monitor->stop();
            listening.monitor->start([&](const auto&) {
                listening.monitor->stop();
                received.set_value();
            });
        });
    });
    EXPECT_EQ(received.get_future().wait_for(20s), std::future_status::ready);
    EXPECT_TRUE(eventually([&] { return server->listeners() == 0; }));
}

using Sound = std::array<std::vector<double>, 2>;  // left and right at 48 kHz

Sound decoded(const std::vector<AudioPacket>& packets) {
    int error = 0;
    const std::unique_ptr<OpusDecoder, void (*)(OpusDecoder*)> decoder(
        opus_decoder_create(48'000, 2, &error), opus_decoder_destroy);
    Sound sound;
    for (const auto& packet : packets) {
        std::array<float, 2 * 960> frames;
        EXPECT_EQ(
            opus_decode_float(decoder.get(), packet.opus.data(),
                              static_cast<opus_int32>(packet.opus.size()), frames.data(), 960, 0),
            960);
        for (std::size_t i = 0; i < frames.size(); ++i)
            sound[i % 2].push_back(frames[i]);
    }
    return sound;
}

// In real time, from a program that plays to what a phone decodes; the output's rate is not the
// stream's. A single sample lost or twice there would turn the phase of the left tone by a fifth.
TEST_F(PulseMonitorTest, twentySecondsOfATonePassWhole) {
    constexpr int playedRate = 44'100, playedSeconds = 22, wantedSeconds = 20;
    constexpr std::array<double, 2> frequencies = {3000, 400};
    constexpr double amplitude = 0.4;

    server->addOutput("first", playedRate);
    std::mutex mutex;
    std::vector<AudioPacket> packets;
    const auto count = [&] {
        const std::lock_guard hold(mutex);
        return packets.size();
    };
    Listening listening(server->address());
    AudioEncoder encoder(listening.queue);
    encoder.onPacket = [&](AudioPacket packet) {
        const std::lock_guard hold(mutex);
        packets.push_back(std::move(packet));
    };
    listening.onQueue(
        [&] { listening.monitor->start([&](const auto& samples) { encoder.encode(samples); }); });
    ASSERT_TRUE(eventually([&] { return count() > 0; })) << "silence is heard";

    std::vector<std::int16_t> frames;
    std::array<std::vector<double>, 2> tones;
    for (std::size_t side = 0; side < 2; ++side)
        tones[side] = tone(frequencies[side], playedRate, playedRate * playedSeconds, amplitude);
    for (std::size_t frame = 0; frame < tones[0].size(); ++frame) {
        for (const auto& channel : tones)
            frames.push_back(static_cast<std::int16_t>(std::lround(channel[frame] * 32'767)));
    }
    server->play("first", frames, playedRate);
    const std::size_t before = count();
    ASSERT_TRUE(eventually([&] { return count() > before + 50 * playedSeconds; }, 60s));
    listening.stop();

    for (std::uint32_t index = 0; index < packets.size(); ++index)
        ASSERT_EQ(packets[index].sequence, index + 1);
    const Sound sound = decoded(packets);
    constexpr std::size_t window = 960;  // whole periods of both
    const auto heardAt = [&](std::size_t side, std::size_t from) {
        return toneIn(std::span(sound[side]).subspan(from, window), frequencies[side]);
    };
    std::size_t from = 0;
    while (from + window < sound[0].size() && std::abs(heardAt(0, from)) < 0.8 * amplitude)
        from += window;
    from += 10 * window;  // everything has settled
    ASSERT_GE(sound[0].size(), from + 50 * wantedSeconds * window);
    for (std::size_t side = 0; side < 2; ++side) {
        const double firstPhase = std::arg(heardAt(side, from));
        double worstPhase = 0, worstLevel = 0;
        for (int piece = 0; piece < 50 * wantedSeconds; ++piece) {
            const auto heard = heardAt(side, from + static_cast<std::size_t>(piece) * window);
            worstPhase = std::max(worstPhase,
                                  std::abs(std::remainder(std::arg(heard) - firstPhase, 2 * pi)));
            worstLevel = std::max(worstLevel, std::abs(std::abs(heard) / amplitude - 1));
        }
        EXPECT_LT(worstPhase, 0.1) << "radians, side " << side;
        EXPECT_LT(worstLevel, 0.1) << "side " << side;
    }
}

// Nothing wakes for it, but what follows is heard from its first sample on.
TEST_F(PulseMonitorTest, leavesOutLongSilences) {
    constexpr int rate = 48'000, silentSeconds = 4;
    server->addOutput("first", rate);
    std::mutex mutex;
    std::vector<double> heard;
    Listening listening(server->address());
    listening.onQueue([&] {
        listening.monitor->start([&](const AudioSamples& samples) {
            const std::lock_guard hold(mutex);
            for (std::size_t frame = 0; frame < samples.frameCount; ++frame) {
                float left = 0;
                std::memcpy(&left, samples.buffers[0].data() + frame * 2 * sizeof left,
                            sizeof left);
                heard.push_back(left);
            }
        });
    });
    const auto isHeard = [&](double level) {
        const std::lock_guard hold(mutex);
        return std::any_of(heard.begin(), heard.end(),
                           [&](double sample) { return std::abs(sample - level) < 0.01; });
    };
    ASSERT_TRUE(eventually([&] { return isHeard(0); }));

    std::vector<std::int16_t> frames(2 * rate / 2, 8'192);  // a quarter of full scale
    frames.resize(frames.size() + 2 * rate * silentSeconds, 0);
    frames.resize(frames.size() + 2 * rate / 2, 16'384);
    server->play("first", frames, rate);
    ASSERT_TRUE(eventually([&] { return isHeard(0.5); }, 20s));
    listening.stop();

    const auto is = [](double level) {
        return [level](double sample) { return std::abs(sample - level) < 0.01; };
    };
    const auto second = std::find_if(heard.begin(), heard.end(), is(0.5));
    const auto first = std::find_if(std::make_reverse_iterator(second), heard.rend(), is(0.25));
    ASSERT_NE(first, heard.rend());
    const auto silence = second - first.base();
    EXPECT_GE(silence, rate);
    EXPECT_LT(silence, rate * 3 / 2);
}

}  // namespace
}  // namespace orvel
