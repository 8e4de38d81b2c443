#pragma once

#include <memory>
#include <optional>
#include <string>

#include "OrvelKit/Base/Clock.h"

namespace orvel::phone {

// A small square on the X display, above all windows, black or white.
class LatencyProbe {
public:
    static constexpr int size = 64;  // pixels

    // On $DISPLAY, its upper left corner at (x, y) of the root window. Null: `problem` says why.
    static std::unique_ptr<LatencyProbe> open(int x, int y, std::string& problem);
    ~LatencyProbe();  // the square goes

    // Draws and waits for the server to have done it. Returns the time of the request, so that what
    // is measured from it is never too little; nullopt when the server is gone.
    std::optional<MonotonicTime> show(bool white);

private:
    struct Server;
    explicit LatencyProbe(std::unique_ptr<Server> xServer);
    std::unique_ptr<Server> server;
};

}  // namespace orvel::phone
