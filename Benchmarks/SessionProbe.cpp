// Measures a session from the phone's end, through the whole agent: until a pointer has moved, how
// long typing takes, what a download does to everything else. Benchmarks/session.sh starts what it
// needs.

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <numeric>
#include <random>
#include <thread>

#include "Benchmarks/PointerClient.h"
#include "Benchmarks/ProbePhone.h"
#include "OrvelKit/Base/Unicode.h"
#include "Phone/Percentile.h"

namespace orvel::phone {

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

struct Options {
    std::string stateFolder, host = "127.0.0.1", path;
    std::uint16_t port = 0;
    int samples = 300;
    double seconds = 5;
};

double milliseconds(Duration time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

void print(const char* what, const std::vector<double>& values) {
    const auto at = [&](double part) { return percentile(values, part).value_or(0); };
    std::printf("%-36s median %6.2f ms, 95 %% %6.2f, worst %7.2f, of %zu\n", what, at(0.5),
                at(0.95), at(1), values.size());
}

// --- The pointer ---

void measurePointer(const Options& options) {
    PointerClient client;
    std::minstd_rand random(1);
    std::vector<double> alone, bare, whole, pings;
    int lost = 0;
    // Not at the rhythm of anything, and with time for the picture in between.
    const auto pause = [&] { std::this_thread::sleep_for(5ms + (random() % 16'000) * 1us); };
    const auto measure = [&](auto move, std::vector<double>& times) {
        pause();
        client.drain();
        const MonotonicTime begin = steady_clock::now();
        move();
        const auto seen = client.nextMotion();
        seen ? times.push_back(milliseconds(*seen - begin)) : void(++lost);
    };
    // Here and there: the agent does not look where the pointer has been put between two moves that
    // follow one another so soon, and would walk out of the window.
    int step = 0;
    const auto nextStep = [&] {
        const int length = static_cast<int>(5 + random() % 40);
        return step = step > 0 ? -length : length;
    };
    for (int i = 0; i < options.samples; ++i) {
        client.centre();
        measure([&] { client.fakeMotion(nextStep(), 0); }, alone);
    }
    ProbePhone phone(options.stateFolder, options.host, options.port);
    phone.ping();
    for (int i = 0; i < options.samples; ++i) {
        client.centre();
        measure([&] { client.fakeMotion(nextStep(), 0); }, bare);
        client.centre();
        measure([&] { phone.send({Control::Move{double(nextStep()), 0}}); }, whole);
        pause();
        pings.push_back(phone.ping());
    }
    print("another X client, nobody watching", alone);
    print("another X client, the phone watching", bare);
    print("the phone moves it", whole);
    print("ping", pings);
    std::printf("moves not seen: %d\n", lost);
}

// --- Text ---

using Characters = std::vector<std::string>;

Characters charactersOf(std::string_view text) {
    Characters characters;
    while (!text.empty()) {
        const std::size_t length = std::max<std::size_t>(characterLength(text), 1);
        characters.emplace_back(text.substr(0, length));
        text.remove_prefix(length);
    }
    return characters;
}

std::string textOf(const Characters& characters) {
    return std::accumulate(characters.begin(), characters.end(), std::string());
}

Characters mixedText(std::size_t count) {
    // The accents of the second sentence are combining marks.
    const Characters pattern = charactersOf(
        "Pijamalı hasta yağız şoföre çabucak güvendi; ŞÖYLE ÜÇ İĞDE. "
        "Cafe\u0301, nin\u0303o, A\u030angstro\u0308m: {[#@~|\\]} 0123456789, $5 & <b>. "
        "👍🏽 🎉 😀 Привет, Ελλάδα, 日本語 €±½ ");
    Characters text;
    while (text.size() < count)
        text.push_back(pattern[text.size() % pattern.size()]);
    return text;
}

// Insertions, deletions and replacements that make one of the other.
std::size_t wrongCharacters(const Characters& is, const Characters& should) {
    std::vector<std::size_t> row(should.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < is.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i + 1);
        for (std::size_t j = 0; j < should.size(); ++j) {
            const std::size_t change = diagonal + (is[i] == should[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({change, row[j] + 1, diagonal + 1});
        }
    }
    return row.back();
}

// What a program in a terminal window gets to read comes through a pipe.
class TypedText {
public:
    explicit TypedText(const std::string& path) : pipe(open(path.c_str(), O_RDWR | O_NONBLOCK)) {
        if (pipe < 0) throw std::runtime_error("the text's pipe cannot be opened");
    }
    ~TypedText() { close(pipe); }
    TypedText(const TypedText&) = delete;
    TypedText& operator=(const TypedText&) = delete;

    // Up to `bytes` bytes: fewer when nothing has come for two seconds.
    std::string read(std::size_t bytes) const {
        std::string text;
        pollfd ready{pipe, POLLIN, 0};
        while (text.size() < bytes && poll(&ready, 1, 2000) > 0) {
            char buffer[4096];
            const ssize_t length = ::read(pipe, buffer, sizeof buffer);
            if (length > 0) text.append(buffer, static_cast<std::size_t>(length));
        }
        return text;
    }

private:
    const int pipe;
};

void measureText(const Options& options) {
    const TypedText typed(options.path);
    ProbePhone phone(options.stateFolder, options.host, options.port);
    phone.send({Control::MoveTo{0.05, 0.05}});  // the window below has the keyboard
    phone.ping();

    std::vector<double> times;
    std::size_t wrong = 0, count = 0;
    const Characters text = mixedText(1000);
    for (int round = 0; round < 5; ++round) {
        const std::string should = textOf(text);
        const MonotonicTime begin = steady_clock::now();
        phone.send({Control::Text{should}});
        const std::string is = typed.read(should.size());
        times.push_back(milliseconds(steady_clock::now() - begin));
        wrong += wrongCharacters(charactersOf(is), text);
        count += text.size();
    }
    print("1,000 characters in one go", times);
    std::printf("%-36s %zu of %zu\n", "wrong characters", wrong, count);

    times.clear();
    wrong = count = 0;
    for (const std::string& character : mixedText(300)) {
        const MonotonicTime begin = steady_clock::now();
        phone.send({Control::Text{character}});
        const std::string is = typed.read(character.size());
        times.push_back(milliseconds(steady_clock::now() - begin));
        wrong += is != character;
        ++count;
    }
    print("a character, until it is read", times);
    std::printf("%-36s %zu of %zu\n", "wrong characters", wrong, count);
}

// --- A download beside everything else ---

struct Phase {
    std::vector<double> pings, videoAges;
    std::uint64_t fileBytes = 0;
    double seconds = 0;

    void run(ProbePhone& phone, double length) {
        const MonotonicTime begin = steady_clock::now();
        const MonotonicTime end =
            begin + std::chrono::duration_cast<Duration>(std::chrono::duration<double>(length));
        phone.takeSeen();
        while (steady_clock::now() < end) {
            std::this_thread::sleep_for(20ms);
            pings.push_back(phone.ping());
        }
        const auto seen = phone.takeSeen();
        seconds += std::chrono::duration<double>(steady_clock::now() - begin).count();
        videoAges.insert(videoAges.end(), seen.videoAges.begin(), seen.videoAges.end());
        fileBytes += seen.fileBytes;
    }
    void print(const char* name) const {
        std::printf("%s: %.0f pictures a second, %.0f MB/s of file\n", name,
                    double(videoAges.size()) / seconds, double(fileBytes) / seconds / 1e6);
        phone::print("  ping", pings);
        phone::print("  age of a picture on arrival", videoAges);
    }
};

void measureDownload(const Options& options) {
    ProbePhone phone(options.stateFolder, options.host, options.port);
    Phase without, with;
    std::this_thread::sleep_for(1s);
    for (int round = 0; round < 3; ++round) {
        without.run(phone, options.seconds);
        phone.startFetching(options.path);
        with.run(phone, options.seconds);
        phone.stopFetching();
    }
    without.print("watching alone");
    with.print("watching beside a download");
}

}  // namespace

}  // namespace orvel::phone

int main(int argc, char** argv) {
    using namespace orvel::phone;
    CLI::App app("Measures a session from the phone's end.", "orvel-session-probe");
    Options options;
    app.add_option("--state-dir", options.stateFolder, "Of a paired phone")->required();
    app.add_option("--host", options.host, "The agent's address");
    app.add_option("--port", options.port, "The agent's port")->required();
    app.add_option("--samples", options.samples, "Moves of the pointer")
        ->check(CLI::Range(1, 10'000));
    app.add_option("--seconds", options.seconds, "Each turn with and without a download")
        ->check(CLI::Range(0.5, 600.0));
    app.require_subcommand(1);
    const auto* pointer = app.add_subcommand("pointer", "From a move to an X client's event");
    auto* text = app.add_subcommand("text", "From a text to the program in the window below");
    text->add_option("PIPE", options.path, "Where that program writes what it reads")->required();
    auto* download = app.add_subcommand("download", "Pings and pictures beside a download");
    download->add_option("PATH", options.path, "A large file there")->required();
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    try {
        if (pointer->parsed()) measurePointer(options);
        if (text->parsed()) measureText(options);
        if (download->parsed()) measureDownload(options);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "orvel: %s\n", error.what());
        return 1;
    }
}
