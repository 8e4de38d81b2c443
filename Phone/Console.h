#pragma once

#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>

namespace orvel::phone {

// Where the program reads and writes: the process's own streams, or a test's.
class Console {
public:
    // Which of the streams are terminals.
    struct Terminals {
        bool out = false, err = false;
    };

    // `input` is a file descriptor, not owned.
    Console(int input, std::ostream& out, std::ostream& err, Terminals terminals);
    static Console ofProcess();

    // A whole line, for results on standard output and for remarks and errors on the other one.
    // Either moves a live line out of the way.
    void say(std::string_view line);
    void remark(std::string_view line);

    // Replaces the live line on a terminal; nothing elsewhere.
    void live(std::string_view line);
    // The same on the error stream, for commands whose output somebody else may read.
    void progress(std::string_view line);
    bool showsProgress() const { return terminals.err; }
    bool outIsTerminal() const { return terminals.out; }

    // The next line of input without its end. nullopt: no more input, or `giveUp`, which is asked
    // every tenth of a second, said so.
    std::optional<std::string> readLine(const std::function<bool()>& giveUp);
    // All the input that is left.
    std::string readAll();

private:
    void show(std::ostream& stream, std::string_view line);
    void endLive();

    const int input;
    std::ostream& out;
    std::ostream& err;
    const Terminals terminals;
    std::ostream* liveOn = nullptr;  // where a live line stands
    std::string pending;             // read, but beyond the last line given
};

}  // namespace orvel::phone
