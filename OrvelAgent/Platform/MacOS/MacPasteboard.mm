// NSPasteboard's contract: the change count is the server's and goes up with every change of owner;
// clearing makes this process the owner and is counted. Text that its owner has only promised is
// fetched from there when it is asked for, which can take as long as that program takes: so it is
// asked for on a queue of its own, one question at a time.
#import <AppKit/AppKit.h>

#include "OrvelAgent/Platform/MacOS/QueueLink.h"
#include "OrvelAgent/Platform/MacOS/Text.h"
#include "OrvelAgent/Platform/Pasteboard.h"

namespace orvel {

namespace {

std::optional<std::string> textOn(NSPasteboard* pasteboard, std::size_t maxBytes) {
    NSString* const string = [pasteboard stringForType:NSPasteboardTypeString];
    if (!string || [string lengthOfBytesUsingEncoding:NSUTF8StringEncoding] > maxBytes) {
        return std::nullopt;
    }
    return textOf(string);
}

class MacPasteboard final : public Pasteboard {
public:
    explicit MacPasteboard(SerialQueue& main) : mainQueue(main) {}
    ~MacPasteboard() override { link->cut(); }

    std::int64_t changeCount() override {
        mainQueue.assertCurrent();
        return NSPasteboard.generalPasteboard.changeCount;
    }

    void readString(std::size_t maxBytes,
                    std::function<void(std::optional<std::string>)> completion) override {
        mainQueue.assertCurrent();
        const std::weak_ptr<Life> weak = life;
        const auto answers = link;
        dispatch_async(readers, ^{
          if (weak.expired()) return;
          auto text = textOn(NSPasteboard.generalPasteboard, maxBytes);
          answers->post([weak, completion, text = std::move(text)] {
              if (!weak.expired()) completion(text);
          });
        });
    }

    std::int64_t setString(std::string text) override {
        mainQueue.assertCurrent();
        NSPasteboard* const pasteboard = NSPasteboard.generalPasteboard;
        [pasteboard clearContents];
        [pasteboard setString:nsString(text) forType:NSPasteboardTypeString];
        return pasteboard.changeCount;
    }

private:
    struct Life {};

    SerialQueue& mainQueue;
    const std::shared_ptr<QueueLink> link = std::make_shared<QueueLink>(mainQueue);
    const dispatch_queue_t readers =
        dispatch_queue_create("orvel.pasteboard", DISPATCH_QUEUE_SERIAL);
    const std::shared_ptr<Life> life = std::make_shared<Life>();  // completions need it
};

}  // namespace

std::unique_ptr<Pasteboard> Pasteboard::create(SerialQueue& mainQueue) {
    return std::make_unique<MacPasteboard>(mainQueue);
}

}  // namespace orvel
