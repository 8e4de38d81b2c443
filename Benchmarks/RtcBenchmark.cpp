// orvel-rtc-benchmark: sessions over the internet, without one: the agent's end and a phone's in
// one process, over the loopback interface. What is measured of both ends includes the phone's
// decoder.

#include <time.h>

#include <CLI/CLI.hpp>
#include <cstdio>

#include "Benchmarks/RtcEncoders.h"
#include "OrvelAgent/Rtc/RtcPairForTests.h"

namespace orvel {
namespace {

using Scene = SyntheticScreen::Scene;
using Clock = RtcPair::Clock;
constexpr auto oneSixtieth = std::chrono::nanoseconds(1'000'000'000 / 60);

double seconds(Clock::duration duration) {
    return std::chrono::duration<double>(duration).count();
}

// A screen that is drawn beforehand, so that drawing is not measured.
PictureFeed::Source loopOf(Scene scene, int width, int height) {
    auto pictures = std::make_shared<std::vector<std::shared_ptr<const PixelBuffer>>>();
    SyntheticScreen screen(width, height, scene);
    constexpr int count = 60;
    for (int i = 0; i < count; ++i)
        pictures->push_back(screen.next());
    auto next = std::make_shared<std::size_t>(0);
    return [pictures, next] {
        const auto& drawn = *pictures->at((*next)++ % pictures->size());
        auto copy = std::make_shared<FakePixelBuffer>(static_cast<const FakePixelBuffer&>(drawn));
        copy->sequence = *next;
        if (*next % pictures->size() == 1) copy->changed = {{0, 0, copy->width, copy->height}};
        return copy;
    };
}

PeerConnection::PictureSink sinkOf(RtcPair& pair) {
    PeerConnection::PictureSink sink;
    RtcPair::on(pair.agentQueue, [&] { sink = pair.session->pictureSink(); });
    return sink;
}

void pass(RtcPair& pair, Clock::duration duration) {
    pair.waitFor([](const auto&) { return false; }, duration);
}

void measureStart(RtcPair& pair, int sessions) {
    std::vector<double> times;
    const auto source = loopOf(Scene::typing, 1920, 1080);
    for (int i = 0; i < sessions; ++i) {
        Clock::time_point offered;
        pair.alterOffer = [&](std::string offer) {
            offered = Clock::now();
            return offer;
        };
        pair.start();
        PictureFeed feed(sinkOf(pair), source, oneSixtieth);
        if (!pair.waitFor([](const auto& all) { return all.pictures > 0; })) return;
        times.push_back(
            seconds(pair.read([](const auto& all) { return all.firstPicture; }) - offered));
        pair.end();
    }
    std::sort(times.begin(), times.end());
    std::printf("offer to first decoded picture, 1080p, %d sessions: median %.0f ms, worst %.0f\n",
                sessions, 1e3 * times[times.size() / 2], 1e3 * times.back());
}

void measureVideo(RtcPair& pair, Scene scene) {
    pair.alterOffer = nullptr;
    if (!pair.connect()) return;
    PictureFeed feed(sinkOf(pair), loopOf(scene, 1920, 1080), oneSixtieth);
    pair.waitFor([](const auto& all) { return all.pictures > 0; });
    for (const int second : {1, 5, 10}) {
        static int passed = 0;
        if (second == 1) passed = 0;
        pass(pair, std::chrono::seconds(second - passed));
        passed = second;
        const auto agent = pair.agentVideo();
        const auto phone = pair.phoneVideo();
        std::printf(
            "%s 1080p60 after %2d s: decoded %.0f/s, allowed %.1f Mbit/s, "
            "%.1f ms an encoded picture, lost %u\n",
            SyntheticScreen::name(scene), second, phone.framesPerSecond, agent.targetBitrate / 1e6,
            1e3 * agent.encodeSeconds / agent.framesEncoded, agent.picturesLost);
    }
    pair.end();
}

void measureFile(RtcPair& pair, bool withVideo, int megabytes) {
    if (!pair.connect()) return;
    std::unique_ptr<PictureFeed> feed;
    if (withVideo) {
        feed = std::make_unique<PictureFeed>(sinkOf(pair), loopOf(Scene::scroll, 1920, 1080),
                                             oneSixtieth);
        pair.waitFor([](const auto& all) { return all.pictures > 60; });
    }
    constexpr std::size_t chunk = 64 * 1024;
    int left = megabytes * 16;
    std::function<void()> sendNext = [&] {
        if (left-- == 0) pair.session->sendFile(FileFrame{1, FileFrame::End{}}.encode(), {});
        if (left < 0) return;
        pair.session->sendFile(FileFrame{1, FileFrame::Data{Bytes(chunk)}}.encode(),
                               [&] { pair.agentQueue.post([&] { sendNext(); }); });
    };
    std::vector<Clock::time_point> sent;
    Timer timer;
    std::function<void()> sendSound = [&] {
        pair.session->sendAudio({static_cast<std::uint32_t>(sent.size()), Bytes(240, 1)});
        sent.push_back(Clock::now());
        timer = pair.agentQueue.after(std::chrono::milliseconds(20), [&] { sendSound(); });
    };
    const auto start = Clock::now();
    pair.agentQueue.post([&] {
        sendNext();
        sendNext();
        sendSound();
    });
    const bool arrived =
        pair.waitFor([](const auto& all) { return all.fileEnds > 0; }, std::chrono::seconds(60));
    const double took = seconds(Clock::now() - start);
    std::size_t packets = 0;
    RtcPair::on(pair.agentQueue, [&] {
        timer.cancel();
        packets = sent.size();
    });
    pass(pair, std::chrono::milliseconds(300));
    std::vector<double> delays;
    const auto bytes = pair.read([&](const auto& all) {
        for (const auto& [number, at] : all.audio)
            delays.push_back(1e3 * seconds(at - sent[number]));
        return all.fileBytes;
    });
    std::sort(delays.begin(), delays.end());
    const auto onTime =
        std::count_if(delays.begin(), delays.end(), [](double ms) { return ms < 60; });
    std::printf(
        "file %s video: %.1f MB/s%s; sound: %zu packets, %.1f %% arrive, %.1f %% within "
        "60 ms, median %.1f ms, 99 %% %.0f ms\n",
        withVideo ? "beside" : "without", 1e-6 * static_cast<double>(bytes) / took,
        arrived ? "" : " (unfinished)", packets,
        100.0 * static_cast<double>(delays.size()) / static_cast<double>(packets),
        100.0 * static_cast<double>(onTime) / static_cast<double>(packets),
        delays.empty() ? 0 : delays[delays.size() / 2],
        delays.empty() ? 0 : delays[delays.size() * 99 / 100]);
    feed = nullptr;
    pair.end();
}

}  // namespace
}  // namespace orvel

int main(int argc, char** argv) {
    int frames = 120, sessions = 10, megabytes = 64;
    CLI::App app("Sessions over the internet: encoders, start, video, files beside sound");
    app.add_option("--frames", frames, "for each encoder; 0: not")->check(CLI::Range(0, 100'000));
    app.add_option("--sessions", sessions, "for the start")->check(CLI::Range(1, 1000));
    app.add_option("--megabytes", megabytes, "of the file")->check(CLI::Range(1, 100'000));
    CLI11_PARSE(app, argc, argv);

    using orvel::Scene;
    if (frames > 0) {
        std::printf(
            "1080p, 8 Mbit/s; CPU ms a picture of own, VP8, OpenH264; ratios; Mbit/s; "
            "%% of pictures coded\n");
        for (const auto scene : {Scene::typing, Scene::scroll, Scene::video, Scene::film})
            orvel::compareRtcEncoders(scene, 1920, 1080, frames);
    }
    orvel::RtcPair pair;
    pair.keepsPictures = false;
    orvel::measureStart(pair, sessions);
    for (const auto scene : {Scene::typing, Scene::scroll, Scene::film})
        orvel::measureVideo(pair, scene);
    for (const bool withVideo : {false, true})
        orvel::measureFile(pair, withVideo, megabytes);
    return 0;
}
