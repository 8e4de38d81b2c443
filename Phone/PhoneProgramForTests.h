#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <ostream>
#include <streambuf>
#include <string>
#include <vector>

#include "Phone/AgentForTests.h"
#include "Phone/PhoneProgram.h"
#include "Phone/PhoneState.h"
#include "Tests/Support/TemporaryFolder.h"

namespace orvel::phone {

// What the program has written so far, for other threads to wait for.
class Written : public std::streambuf {
public:
    std::string text() const {
        const std::lock_guard hold(mutex);
        return content;
    }
    bool waitFor(const std::string& part) {
        std::unique_lock hold(mutex);
        return changed.wait_for(hold, std::chrono::seconds(20),
                                [&] { return content.find(part) != std::string::npos; });
    }

protected:
    int overflow(int c) override {
        const char byte = static_cast<char>(c);
        xsputn(&byte, 1);
        return c;
    }
    std::streamsize xsputn(const char* bytes, std::streamsize count) override {
        const std::lock_guard hold(mutex);
        content.append(bytes, static_cast<std::size_t>(count));
        changed.notify_all();
        return count;
    }

private:
    mutable std::mutex mutex;
    std::condition_variable changed;
    std::string content;
};

// The program with a state of its own and somebody at its keyboard.
class PhoneProgramTest : public testing::Test {
protected:
    PhoneProgramTest() {
        int ends[2];
        if (pipe(ends) != 0) std::abort();
        input = ends[0];
        keyboard = ends[1];
    }
    ~PhoneProgramTest() override {
        close(input);
        endTyping();
    }

    void type(const std::string& text) {
        EXPECT_EQ(write(keyboard, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    void endTyping() {
        if (keyboard >= 0) close(keyboard);
        keyboard = -1;
    }

    int run(std::vector<std::string> arguments) {
        out = std::make_unique<Written>();
        err = std::make_unique<Written>();
        std::ostream outStream(out.get()), errStream(err.get());
        Console console(input, outStream, errStream, terminals);
        arguments.insert(arguments.begin(), {"--state-dir", state(), "--name", "Test phone"});
        return PhoneProgram::run(std::move(arguments), console, [this] { return network; });
    }
    int runAt(const AgentForTests& agent, std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(),
                         {"--host", "127.0.0.1", "--port", std::to_string(agent.port())});
        return run(std::move(arguments));
    }

    std::string state() const { return folder / "state"; }
    std::string said() const { return out->text(); }
    std::string remarked() const { return err->text(); }
    void know(const AgentForTests& agent) {
        PhoneState(state()).remember(
            {agent.deviceID(), agent.identity.publicKey(), "Desk", "127.0.0.1", agent.port(), {}});
    }
    std::vector<KnownAgent> known() const { return PhoneState(state()).agents(); }

    TemporaryFolder folder;
    Discovered network;
    Console::Terminals terminals;
    int input = -1, keyboard = -1;
    std::unique_ptr<Written> out = std::make_unique<Written>(), err = std::make_unique<Written>();
};

// The time of now as a frame carries it.
inline std::uint64_t nowMicros() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::microseconds>(now).count());
}

}  // namespace orvel::phone
