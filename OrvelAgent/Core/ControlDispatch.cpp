#include "OrvelAgent/Core/ControlDispatch.h"

namespace orvel {

ControlDispatch::ControlDispatch(Routes controlRoutes) : routes(std::move(controlRoutes)) {}

void ControlDispatch::dispatch(const Control& control, PhoneLink& link, bool isActive) const {
    if (const auto* hello = control.as<Hello>()) return routes.hello(link, *hello);
    if (!isActive || !link.isAuthenticated()) return;
    if (const auto* ping = control.as<Control::Ping>()) {
        link.sendControl({Control::Pong{ping->value}});
    } else if (const auto* select = control.as<Control::SelectDisplay>()) {
        routes.selectDisplay(link, select->id);
    } else if (control.as<Control::RequestKeyframe>()) {
        routes.requestKeyframe();
    }
}

}  // namespace orvel
