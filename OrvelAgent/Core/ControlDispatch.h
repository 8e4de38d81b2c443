#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "OrvelAgent/Core/PhoneLink.h"
#include "OrvelAgent/Desk/FileServer.h"
#include "OrvelAgent/Desk/InputInjector.h"
#include "OrvelAgent/Media/ScreenStreamer.h"
#include "OrvelKit/Wire/Control.h"

namespace orvel {

// Where each control of a phone goes. A hello is always heard; anything else only from the active,
// admitted link. Cases that only an agent sends are ignored. What no event can carry, and more
// requests for files than a phone in its senses makes, ends the link.
//
// It holds what phones act on: the input injector, the file server and the streamer. Belongs to
// "orvel.agent"; the routes are called there, synchronously.
class ControlDispatch {
public:
    struct Parts {
        SerialQueue& queue;
        SerialQueue& filesQueue;
        EventPoster& poster;
        FileSystem& files;
        std::string homeFolder;
        std::shared_ptr<ScreenStreamer> streamer;
    };
    // What is the core's to do.
    struct Routes {
        std::function<void(PhoneLink&, const Hello&)> hello;
        std::function<void(PhoneLink&, std::uint32_t displayID)> selectDisplay;
        std::function<void(const std::string& text)> clipboard;
    };

    ControlDispatch(Parts parts, Routes routes);

    // `isActive`: the core obeys this link.
    void dispatch(const Control& control, const std::shared_ptr<PhoneLink>& link, bool isActive);

    // A capture of this display has started for the active link.
    void displayCaptured(std::uint32_t displayID);
    // The link's downloads end. If it `wasActive`, what it held down is let go of.
    void linkEnded(const PhoneLink& link, bool wasActive);

private:
    struct Obey;

    const Routes routes;
    const std::shared_ptr<ScreenStreamer> streamer;
    const std::shared_ptr<FileServer> files;
    InputInjector injector;
};

}  // namespace orvel
