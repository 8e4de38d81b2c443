#pragma once

#include "OrvelAgent/Platform/LoginService.h"

namespace orvel {

// A system that may refuse.
class FakeLoginService : public LoginService {
public:
    bool registered = false;
    bool refuses = false;
    int calls = 0;  // that should have changed it

    bool isRegistered() override { return registered; }
    void registerProgram() override { set(true); }
    void unregisterProgram() override { set(false); }

private:
    void set(bool value) {
        ++calls;
        if (!refuses) registered = value;
    }
};

}  // namespace orvel
