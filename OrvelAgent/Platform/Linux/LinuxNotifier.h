#pragma once

#include <deque>
#include <memory>
#include <string>
#include <utility>

#include "OrvelAgent/Platform/Linux/AsyncBus.h"
#include "OrvelAgent/Platform/Notifier.h"
#include "OrvelKit/Base/SerialQueue.h"

namespace orvel {

// By the desktop's notification service (Desktop Notifications Specification 1.2), which is started
// if the session bus can do that. Everything happens on "orvel.notify", one notification after the
// other; the bus is connected to when there is something to show.
class LinuxNotifier : public Notifier {
public:
    LinuxNotifier();
    // Waits for what "orvel.notify" is doing: nothing, or waiting two seconds at most for a bus.
    ~LinuxNotifier() override;

    void requestPermission() override {}  // nobody has such a question
    void post(Notification notification) override;

private:
    bool connect() RUNS_ON(queue);
    void showNext() RUNS_ON(queue);
    void show(bool bodyIsMarkup) RUNS_ON(queue);
    void shown(GVariant* answer) RUNS_ON(queue);
    void received(const BusSignal& signal) RUNS_ON(queue);

    std::shared_ptr<AsyncBus> bus OWNED_BY(queue);
    // The first is with the service while `underWay`.
    std::deque<Notification> waiting OWNED_BY(queue);
    bool underWay OWNED_BY(queue) = false;
    // The service's numbers of the last ones, by identifier; of no use to another service.
    std::deque<std::pair<std::string, guint32>> numbers OWNED_BY(queue);
    SerialQueue queue{"orvel.notify"};  // last: its thread ends before the fields do
};

}  // namespace orvel
