#pragma once

#include <functional>
#include <string>
#include <thread>

namespace orvel {

// Reads lines from a descriptor on a thread of its own, since standard input may be a terminal, a
// pipe or a file, and not all of them can be waited for by an event loop. The end of the input is
// silent. `onLine` is called on that thread; not any more once the destructor has returned.
class LineReader {
public:
    static constexpr std::size_t maxLine = 65'536;  // a longer one is delivered cut off there

    LineReader(int descriptor, std::function<void(std::string)> onLine);
    ~LineReader();
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;

private:
    void run(int descriptor);

    std::function<void(std::string)> onLine;
    int wakeUp[2] = {-1, -1};  // a pipe; its end tells the thread to stop
    std::thread thread;
};

}  // namespace orvel
