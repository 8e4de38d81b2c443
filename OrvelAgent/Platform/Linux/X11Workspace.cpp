#include "OrvelAgent/Platform/Linux/X11Workspace.h"

#include <future>
#include <utility>

#include "OrvelAgent/Platform/Linux/DesktopEntries.h"
#include "OrvelAgent/Platform/Linux/X11FrontWindow.h"

namespace orvel {

namespace {

Workspace::Application applicationOf(const WindowIdentity& window, DesktopEntries& entries) {
    Workspace::Application application;
    if (const auto* entry = entries.find(window)) {
        application = {entry->id, entry->name};
    } else {
        const auto& id = window.applicationID.empty() ? window.desktopFile : window.applicationID;
        application.bundleID = desktopFileID(id);
    }
    for (const auto& name : {window.className, window.instance, window.title}) {
        if (application.name.empty()) application.name = name;
    }
    return application;
}

}  // namespace

std::unique_ptr<Workspace> Workspace::create(SerialQueue& mainQueue) {
    return std::make_unique<X11Workspace>(
        mainQueue, X11Workspace::Options{{}, applicationFolders(), messageLanguages()});
}

X11Workspace::X11Workspace(SerialQueue& main, Options options)
    : mainQueue(main), front(std::make_shared<Front>()) {
    const auto entries =
        std::make_shared<DesktopEntries>(std::move(options.folders), std::move(options.languages));
    auto onChange = [this, entries, weak = std::weak_ptr(front)](const WindowIdentity& window) {
        mainQueue.post([weak, application = applicationOf(window, *entries)] {
            const auto target = weak.lock();
            if (!target) return;
            target->application = application;
            if (const auto handler = target->handler) handler(application);
        });
    };
    queue.post([this, onChange, display = std::move(options.display)] {
        queue.assertCurrent();
        frontWindow = std::make_unique<X11FrontWindow>(queue, display, onChange);
    });
}

X11Workspace::~X11Workspace() {
    std::promise<void> ended;
    queue.post([&] {
        queue.assertCurrent();
        frontWindow.reset();
        ended.set_value();
    });
    ended.get_future().wait();
}

Workspace::Application X11Workspace::frontmost() {
    return front->application;
}

void X11Workspace::observeActivations(std::function<void(const Application&)> handler) {
    front->handler = std::move(handler);
}

}  // namespace orvel
