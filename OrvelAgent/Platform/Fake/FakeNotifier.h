#pragma once

#include <utility>
#include <vector>

#include "OrvelAgent/Platform/Notifier.h"

namespace orvel {

// Records. For tests whose queues share one thread.
class FakeNotifier : public Notifier {
public:
    std::vector<Notification> posted;
    int permissionRequests = 0;

    void requestPermission() override { ++permissionRequests; }
    void post(Notification notification) override { posted.push_back(std::move(notification)); }
};

}  // namespace orvel
