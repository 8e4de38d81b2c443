#pragma once

#include <memory>
#include <string>
#include <vector>

#include "OrvelAgent/Platform/Workspace.h"

namespace orvel {

class X11FrontWindow;

// The application of the window that an X desktop's window manager calls active (EWMH). Each other
// window that becomes it is an activation, one of the same application too; so is, with an
// application without names, that for a while none is. Identifier and name are those of the
// application's desktop file; of one without, the name is what its windows are called.
//
// All that may have to wait for the X server or a disk happens on "orvel.workspace"; the main queue
// only hears of it. Without an X server or such a window manager nothing is known.
class X11Workspace : public Workspace {
public:
    struct Options {
        std::string display = {};                 // as in $DISPLAY; empty: what that says
        std::vector<std::string> folders = {};    // with desktop files: applicationFolders()
        std::vector<std::string> languages = {};  // messageLanguages()
    };
    X11Workspace(SerialQueue& mainQueue, Options options);
    ~X11Workspace() override;

    Application frontmost() override;
    void observeActivations(std::function<void(const Application&)> handler) override;

private:
    // The main queue's; shared so that it is known when it has gone.
    struct Front {
        Application application;
        std::function<void(const Application&)> handler;
    };

    SerialQueue& mainQueue;
    const std::shared_ptr<Front> front;
    std::unique_ptr<X11FrontWindow> frontWindow OWNED_BY(queue);
    SerialQueue queue{"orvel.workspace"};
};

}  // namespace orvel
