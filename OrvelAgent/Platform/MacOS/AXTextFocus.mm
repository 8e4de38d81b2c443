// Accessibility's contract: asking an element is an exchange with the program that shows it and
// takes as long as that takes, up to the messaging timeout. So the questions are put on a queue of
// their own, one at a time, and only while somebody observes; the main queue reads the last answer.
// Without the permission every question fails.
#include <ApplicationServices/ApplicationServices.h>
#import <Foundation/Foundation.h>

#include <mutex>

#include "OrvelAgent/Platform/MacOS/CFOwner.h"
#include "OrvelAgent/Platform/MacOS/Text.h"
#include "OrvelAgent/Platform/TextFocus.h"

namespace orvel {

namespace {

using Element = TextFocus::Element;

constexpr float longestAnswer = 0.5;  // seconds
constexpr std::int64_t betweenQuestions = 100 * NSEC_PER_MSEC;

// Shared with the questions; it outlives the port while one is under way.
struct Watch {
    std::mutex mutex;  // guards the fields below
    bool isObserved = false;
    bool isAsking = false;
    std::optional<Element> answer;
};

CFOwner<CFTypeRef> attribute(AXUIElementRef element, CFStringRef name) {
    CFOwner<CFTypeRef> value;
    if (AXUIElementCopyAttributeValue(element, name, value.receive()) != kAXErrorSuccess) return {};
    return value;
}

std::optional<Element> ask() {
    const CFOwner<AXUIElementRef> system(AXUIElementCreateSystemWide());
    AXUIElementSetMessagingTimeout(system.get(), longestAnswer);
    const auto focused = attribute(system.get(), kAXFocusedUIElementAttribute);
    if (!focused || CFGetTypeID(focused.get()) != AXUIElementGetTypeID()) return std::nullopt;
    const auto element = static_cast<AXUIElementRef>(focused.get());

    Element found;
    const auto role = attribute(element, kAXRoleAttribute);
    if (role && CFGetTypeID(role.get()) == CFStringGetTypeID()) {
        found.role = textOf((__bridge NSString*)static_cast<CFStringRef>(role.get()));
    }
    Boolean isSettable = false;
    found.canSelectText = AXUIElementIsAttributeSettable(element, kAXSelectedTextRangeAttribute,
                                                         &isSettable) == kAXErrorSuccess &&
                          isSettable;
    return found;
}

// Asks again and again, with a pause after each answer, until nobody observes.
// By value: a block would keep a reference as it is.
void keepAsking(std::shared_ptr<Watch> watch, dispatch_queue_t queue) {
    auto answer = ask();
    {
        const std::lock_guard hold(watch->mutex);
        if (!watch->isObserved) {
            watch->isAsking = false;
            return;
        }
        watch->answer = std::move(answer);
    }
    dispatch_after(dispatch_time(DISPATCH_TIME_NOW, betweenQuestions), queue, ^{
      keepAsking(watch, queue);
    });
}

class AXTextFocus final : public TextFocus {
public:
    explicit AXTextFocus(SerialQueue& main) : mainQueue(main) {}
    ~AXTextFocus() override {
        const std::lock_guard hold(watch->mutex);
        watch->isObserved = false;
    }

    void setObserved(bool observed) override {
        mainQueue.assertCurrent();
        const std::lock_guard hold(watch->mutex);
        watch->isObserved = observed;
        watch->answer.reset();
        if (!observed || std::exchange(watch->isAsking, true)) return;
        const auto shared = watch;
        const dispatch_queue_t askers = queue;
        dispatch_async(askers, ^{
          keepAsking(shared, askers);
        });
    }

    std::optional<Element> focusedElement() override {
        mainQueue.assertCurrent();
        const std::lock_guard hold(watch->mutex);
        return watch->answer;
    }

private:
    SerialQueue& mainQueue;
    const std::shared_ptr<Watch> watch = std::make_shared<Watch>();
    const dispatch_queue_t queue = dispatch_queue_create("orvel.focus", DISPATCH_QUEUE_SERIAL);
};

}  // namespace

std::unique_ptr<TextFocus> TextFocus::create(SerialQueue& mainQueue) {
    return std::make_unique<AXTextFocus>(mainQueue);
}

}  // namespace orvel
