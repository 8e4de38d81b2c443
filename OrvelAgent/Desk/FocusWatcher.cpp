#include "OrvelAgent/Desk/FocusWatcher.h"

#include <algorithm>
#include <string_view>

namespace orvel {

namespace {

constexpr std::string_view textRoles[] = {"AXTextField", "AXTextArea", "AXComboBox",
                                          "AXSearchField"};

bool takesText(const TextFocus::Element& element) {
    // What has another role, an editable part of a web page, say, takes text if it can select it.
    return element.canSelectText ||
           (element.role && std::find(std::begin(textRoles), std::end(textRoles), *element.role) !=
                                std::end(textRoles));
}

}  // namespace

FocusWatcher::FocusWatcher(SerialQueue& mainQueue, Workspace& desktopWorkspace,
                           TextFocus& desktopFocus)
    : queue(mainQueue), workspace(desktopWorkspace), textFocus(desktopFocus) {}

void FocusWatcher::start() {
    queue.assertCurrent();
    stop();
    workspace.observeActivations([weak = weak_from_this()](const Workspace::Application& front) {
        const auto self = weak.lock();
        if (!self) return;
        self->queue.assertCurrent();
        self->report(front);
    });
    textFocus.setObserved(true);
    schedulePoll();
    report(workspace.frontmost());
}

void FocusWatcher::stop() {
    queue.assertCurrent();
    timer.cancel();
    workspace.observeActivations(nullptr);
    textFocus.setObserved(false);
    lastText.reset();
}

void FocusWatcher::schedulePoll() {
    timer = queue.after(interval, [weak = weak_from_this()] {
        const auto self = weak.lock();
        if (!self) return;
        self->queue.assertCurrent();
        self->schedulePoll();
        self->poll();
    });
}

void FocusWatcher::poll() {
    const auto element = textFocus.focusedElement();
    const bool isText = element && takesText(*element);
    if (lastText == isText) return;
    lastText = isText;
    if (onTextFocus) onTextFocus(isText);
}

void FocusWatcher::report(const Workspace::Application& application) {
    if (onFrontApp) onFrontApp(application.bundleID, application.name);
}

}  // namespace orvel
