#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "OrvelAgent/Platform/TextFocus.h"
#include "OrvelAgent/Platform/Workspace.h"
#include "OrvelKit/Base/SerialQueue.h"

namespace orvel {

// Reports which application is in front and whether the keyboard's focus is in a text, so that the
// phone can raise its keyboard. Every activation is reported, the text focus when it has changed.
// To be run while a phone is connected: it looks at the focus three times a second. Whoever lets go
// of it stops it first.
//
// Used on the main queue, owned by a shared_ptr.
class FocusWatcher : public std::enable_shared_from_this<FocusWatcher> {
public:
    static constexpr std::chrono::milliseconds interval{300};

    // Both outlive the watcher.
    FocusWatcher(SerialQueue& mainQueue, Workspace& workspace, TextFocus& textFocus);

    std::function<void(std::string bundleID, std::string name)> onFrontApp;
    std::function<void(bool)> onTextFocus;

    // Reports the application in front before it returns, the text focus within 0.3 s, whatever
    // was reported before. Running already, it begins anew.
    void start();
    void stop();

private:
    void schedulePoll() RUNS_ON(queue);
    void poll() RUNS_ON(queue);
    void report(const Workspace::Application& application) RUNS_ON(queue);

    SerialQueue& queue;
    Workspace& workspace OWNED_BY(queue);
    TextFocus& textFocus OWNED_BY(queue);
    std::optional<bool> lastText OWNED_BY(queue);  // nullopt: nothing reported since the start
    Timer timer OWNED_BY(queue);
};

}  // namespace orvel
