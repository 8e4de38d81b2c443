#include "OrvelAgent/Core/ControlDispatch.h"

#include <utility>

namespace orvel {

ControlDispatch::ControlDispatch(Parts parts, Routes controlRoutes)
    : routes(std::move(controlRoutes)),
      streamer(std::move(parts.streamer)),
      files(std::make_shared<FileServer>(parts.queue, parts.filesQueue, parts.files,
                                         std::move(parts.homeFolder))),
      injector(parts.queue, parts.poster) {}

// What the active link asks for. A case without a call of its own is the injector's, which ignores
// what is no input.
struct ControlDispatch::Obey {
    ControlDispatch& self;
    const Control& control;
    const std::shared_ptr<PhoneLink>& link;

    void operator()(const Control::Ping& ping) const {
        link->sendControl({Control::Pong{ping.value}});
    }
    void operator()(const Control::SelectDisplay& select) const {
        self.injector.releaseButtons();
        self.routes.selectDisplay(*link, select.id);
    }
    void operator()(const Control::Audio& audio) const { self.streamer->setAudio(audio.on); }
    void operator()(const Control::ListDirectory& list) const {
        const auto outcome = self.files->listDirectory(
            list.path,
            [weak = std::weak_ptr(link)](DirectoryListing listing) {
                if (const auto asking = weak.lock()) asking->sendControl({std::move(listing)});
            },
            link->longestControl());
        if (outcome == FileServer::Outcome::refused) link->close();
    }
    void operator()(const Control::FetchFile& fetch) const {
        const auto outcome = self.files->fetchFile(fetch.id, fetch.path, link);
        if (outcome == FileServer::Outcome::refused) link->close();
    }
    void operator()(const Control::CancelFetch& cancel) const {
        self.files->cancel(cancel.id, *link);
    }
    void operator()(const Control::Clipboard& clipboard) const {
        self.routes.clipboard(clipboard.text);
    }
    void operator()(const Control::RequestKeyframe&) const { self.streamer->requestKeyframe(); }
    template <class Other>
    void operator()(const Other&) const {
        if (self.injector.handle(control) == InputInjector::Outcome::refused) link->close();
    }
};

void ControlDispatch::dispatch(const Control& control, const std::shared_ptr<PhoneLink>& link,
                               bool isActive) {
    if (const auto* hello = control.as<Hello>()) return routes.hello(*link, *hello);
    if (!isActive || !link->isAuthenticated()) return;
    std::visit(Obey{*this, control, link}, control.value);
}

void ControlDispatch::displayCaptured(std::uint32_t displayID) {
    injector.setDisplay(displayID);
}

void ControlDispatch::linkEnded(const PhoneLink& link, bool wasActive) {
    files->cancelAll(link);
    if (wasActive) injector.releaseAll();
}

}  // namespace orvel
