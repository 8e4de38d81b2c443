#include "OrvelAgent/Platform/Linux/LinuxTextFocus.h"

#include <future>

namespace orvel {

std::unique_ptr<TextFocus> TextFocus::create(SerialQueue& mainQueue) {
    return std::make_unique<LinuxTextFocus>(mainQueue);
}

LinuxTextFocus::LinuxTextFocus(SerialQueue& receivingQueue) : mainQueue(receivingQueue) {
    queue.post([this] {
        queue.assertCurrent();
        service = std::make_shared<AccessibilityService>(queue);
        service->start();
    });
}

LinuxTextFocus::~LinuxTextFocus() {
    std::promise<void> gone;
    queue.post([this, &gone] {
        queue.assertCurrent();
        observer.reset();
        service.reset();
        gone.set_value();
    });
    gone.get_future().wait();
}

void LinuxTextFocus::setObserved(bool observed) {
    mainQueue.assertCurrent();
    if (observed == (known != nullptr)) return;
    known = observed ? std::make_shared<Known>() : nullptr;
    queue.post([this, observed, destination = std::weak_ptr(known)] {
        queue.assertCurrent();
        observer.reset();
        service->onAddress = nullptr;
        if (observed) observe(destination);
    });
}

void LinuxTextFocus::observe(const std::weak_ptr<Known>& destination) {
    observer = std::make_shared<FocusObserver>(queue);
    observer->onElement = [this, destination](const std::optional<Element>& element) {
        mainQueue.post([destination, element] {
            if (const auto target = destination.lock()) target->element = element;
        });
    };
    service->onAddress = [weak = std::weak_ptr(observer)](const std::string& address) {
        if (const auto target = weak.lock()) target->connect(address);
    };
    // In case there was no session before.
    service->start();
    if (!service->address().empty()) observer->connect(service->address());
}

std::optional<TextFocus::Element> LinuxTextFocus::focusedElement() {
    mainQueue.assertCurrent();
    return known ? known->element : std::nullopt;
}

}  // namespace orvel
