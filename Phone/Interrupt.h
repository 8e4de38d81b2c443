#pragma once

namespace orvel::phone {

// While one lives, the first SIGINT or SIGTERM is a request that the program looks for, so that a
// film is finished; the second one ends the process as usual. One at a time.
class Interrupt {
public:
    Interrupt();
    ~Interrupt();
    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;

    bool isRequested() const;
};

}  // namespace orvel::phone
