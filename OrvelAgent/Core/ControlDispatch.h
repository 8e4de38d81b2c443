#pragma once

#include <cstdint>
#include <functional>

#include "OrvelAgent/Core/PhoneLink.h"
#include "OrvelKit/Wire/Control.h"

namespace orvel {

// Where each control of a phone goes. A hello is always heard; anything else only from the active,
// admitted link. Cases that only an agent sends are ignored. Belongs to "orvel.agent"; the routes
// are called there, synchronously.
class ControlDispatch {
public:
    struct Routes {
        std::function<void(PhoneLink&, const Hello&)> hello;
        std::function<void(PhoneLink&, std::uint32_t displayID)> selectDisplay;
        std::function<void()> requestKeyframe;
    };

    explicit ControlDispatch(Routes routes);

    // `isActive`: the core obeys this link.
    void dispatch(const Control& control, PhoneLink& link, bool isActive) const;

private:
    Routes routes;
};

}  // namespace orvel
