#pragma once

#include <memory>

namespace orvel {

// Whether the system starts this program when its user logs in. On the main queue; a call takes no
// longer than reading or writing a small file.
class LoginService {
public:
    virtual ~LoginService() = default;
    // What the system will do at the next login, whoever arranged it.
    virtual bool isRegistered() = 0;
    // A failure is logged, and shows in isRegistered().
    virtual void registerProgram() = 0;
    virtual void unregisterProgram() = 0;

    static std::unique_ptr<LoginService> create();
};

}  // namespace orvel
