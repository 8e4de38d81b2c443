// orvel-input-benchmark [--motions N] [--characters N] [--benchmark_filter REGEX]: how soon a
// program sees what is posted, and how fast and exactly text arrives, on an X server of its own.
// Times on a busy machine are hints; the characters have to be right on any.

#include <xkbcommon/xkbcommon.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "OrvelAgent/Platform/Linux/LinuxEventPoster.h"
#include "OrvelKit/Base/FakeDefaults.h"
#include "OrvelKit/Base/Unicode.h"
#include "Tests/Support/BackgroundProcess.h"
#include "Tests/Support/TemporaryFolder.h"
#include "Tests/Support/XHands.h"
#include "Tests/Support/XReader.h"
#include "Tests/Support/XServer.h"

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

double milliseconds(Clock::duration duration) {
    return std::chrono::duration<double, std::milli>(duration).count();
}

struct Desk {
    explicit Desk(const std::string& layout, bool hasManager = false) {
        hands.setLayout(layout);
        if (hasManager) {
            const std::string ready = folder / "ready";
            manager.emplace(orvel::BackgroundProcess::Options{
                .command = {"openbox", "--sm-disable", "--startup", "touch " + ready},
                .environment = {{"DISPLAY", server.display()}, {"HOME", folder / "home"}},
                .outputFile = folder / "log"});
            orvel::eventually([&] { return std::filesystem::exists(ready); });
        }
        reader.emplace(server.display(), hasManager ? orvel::XReader::Kind::managed
                                                    : orvel::XReader::Kind::unmanaged);
        orvel::eventually([&] { return poster.displayBounds({}).has_value(); });
    }
    const orvel::TemporaryFolder folder;
    orvel::FakeDefaults defaults;
    orvel::XServer server;
    orvel::XHands hands{server.display()};
    std::optional<orvel::BackgroundProcess> manager;
    std::optional<orvel::XReader> reader;
    orvel::LinuxEventPoster poster{defaults, server.display()};
};

void measureMotion(int motions) {
    Desk desk("us");
    std::vector<double> delays;
    for (int i = 0; i < motions; ++i) {
        std::this_thread::sleep_for(8ms);  // a phone's finger
        const int x = i % 500;
        const auto posted = Clock::now();
        desk.poster.postMotion(orvel::EventPoster::Motion::moved, {double(x), 5}, 1, 0);
        while (Clock::now() - posted < 1s) {
            const auto seen = desk.reader->lastMotion();
            if (seen.x == x && seen.time >= posted) {
                delays.push_back(milliseconds(seen.time - posted));
                break;
            }
            std::this_thread::sleep_for(50us);
        }
    }
    std::sort(delays.begin(), delays.end());
    const auto quantile = [&](double part) {
        return delays.empty() ? 0
                              : delays[static_cast<std::size_t>(part * double(delays.size() - 1))];
    };
    std::printf("motion: posted to seen, ms: median %.3f, 95 %% %.3f, most %.3f, lost %zu of %d\n",
                quantile(0.5), quantile(0.95), quantile(1), std::size_t(motions) - delays.size(),
                motions);
}

std::string utf8(const std::u32string& text) {
    std::string bytes;
    for (const char32_t character : text) {
        char encoded[8];
        xkb_keysym_to_utf8(xkb_utf32_to_keysym(character), encoded, sizeof encoded);
        bytes += encoded;
    }
    return bytes;
}

// A window manager takes hold of its keys anew when the keyboard's table has changed, and keeps
// clicks meanwhile: how long a click is on its way that follows characters which the layout lacks.
void measureClick(std::size_t newCharacters) {
    constexpr int rounds = 10;
    Desk desk("us", true);
    std::vector<double> delays;
    char32_t next = U'一';
    for (int i = 0; i < rounds; ++i) {
        std::u32string text;
        for (std::size_t n = 0; n < newCharacters; ++n)
            text += next++;
        const auto posted = Clock::now();
        desk.poster.postText(orvel::utf16From(utf8(text)));
        desk.poster.postButton(orvel::MouseButton::left, true, {100, 100}, 1);
        desk.poster.postButton(orvel::MouseButton::left, false, {100, 100}, 1);
        orvel::eventually([&] { return desk.reader->lastPresses().button >= posted; });
        const auto seen = desk.reader->lastPresses();
        delays.push_back(milliseconds(seen.button - seen.key));
    }
    std::sort(delays.begin(), delays.end());
    std::printf("click: behind the last of %2zu new characters, ms: median %.1f, most %.1f\n",
                newCharacters, delays[rounds / 2], delays.back());
}

// What is typed, by name.
std::vector<std::pair<const char*, std::u32string>> texts(std::size_t count) {
    const std::pair<const char*, std::u32string_view> sources[] = {
        {"Turkish", U"Pijamalı hasta yağız şoföre çabucak güvendi. "},
        {"mixed",
         U"Şu ılık çöğüş 👍🏽 naïve Ωμέγα жизнь 漢字かな €½ e\u0301 "
         U"❤\uFE0F "
         U"— "
         U"“x” "},
        {"all different", {}},
    };
    std::vector<std::pair<const char*, std::u32string>> all;
    for (const auto& [name, source] : sources) {
        std::u32string text;
        for (std::size_t i = 0; i < count; ++i)
            text += source.empty() ? static_cast<char32_t>(U'一' + i) : source[i % source.size()];
        all.emplace_back(name, text);
    }
    return all;
}

std::size_t wrongCharacters(const std::string& want, const std::string& got) {
    const auto a = orvel::utf16From(want), b = orvel::utf16From(got);
    std::size_t wrong = a.size() > b.size() ? a.size() - b.size() : b.size() - a.size();
    for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i)
        wrong += a[i] != b[i];
    return wrong;
}

// False when something was wrong.
bool measureText(const char* layout, const char* name, const std::u32string& text) {
    Desk desk(layout);
    const std::string want = utf8(text);
    const auto units = orvel::utf16From(want);
    const auto began = Clock::now();
    for (std::size_t at = 0; at < units.size(); at += 16)
        desk.poster.postText(std::u16string_view(units).substr(at, 16));
    desk.poster.postMotion(orvel::EventPoster::Motion::moved, {33, 44}, 0, 0);
    orvel::eventually([&] { return desk.reader->lastMotion().y == 44; }, 60s);
    const double took = milliseconds(desk.reader->lastMotion().time - began);
    const auto got = desk.reader->takeText();
    const auto wrong = wrongCharacters(want, got);
    if (wrong > 0) {
        const auto at = std::size_t(
            std::mismatch(want.begin(), want.end(), got.begin(), got.end()).first - want.begin());
        const auto from = at - std::min<std::size_t>(at, 20);
        std::printf("    sent %s\n    seen %s\n", want.substr(from, 60).c_str(),
                    got.substr(std::min(from, got.size()), 60).c_str());
    }
    std::printf("text: %-14s under %-6s %zu characters in %7.1f ms, %7.0f a second, %zu wrong\n",
                name, layout, text.size(), took, double(text.size()) / took * 1000, wrong);
    return wrong == 0;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("How soon and how exactly pointer and text arrive");
    int motions = 500;
    std::size_t characters = 1'000;
    std::string filter;
    app.add_option("--motions", motions)->check(CLI::PositiveNumber);
    app.add_option("--characters", characters)->check(CLI::PositiveNumber);
    // Called as in the other benchmarks, so that one command runs them all.
    app.add_option("--benchmark_filter", filter,
                   "a regular expression: motion, click, or a kind of text");
    CLI11_PARSE(app, argc, argv);
    std::signal(SIGPIPE, SIG_IGN);

    if (std::regex_search("motion", std::regex(filter))) measureMotion(motions);
    if (std::regex_search("click", std::regex(filter))) {
        for (const std::size_t count : {1u, 5u, 19u})
            measureClick(count);
    }
    bool isRight = true;
    for (const auto& [name, text] : texts(characters)) {
        if (!std::regex_search(name, std::regex(filter))) continue;
        for (const char* layout : {"us", "tr"})
            isRight = measureText(layout, name, text) && isRight;
    }
    return isRight ? 0 : 1;
}
