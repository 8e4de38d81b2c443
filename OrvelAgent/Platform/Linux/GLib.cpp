#include "OrvelAgent/Platform/Linux/GLib.h"

namespace orvel {

Deadline::Deadline(Duration limit)
    : watcher([this, until = std::chrono::steady_clock::now() + limit] {
          std::unique_lock hold(mutex);
          if (!changed.wait_until(hold, until, [this] { return over; })) {
              g_cancellable_cancel(cancel.get());
          }
      }) {}

Deadline::~Deadline() {
    {
        const std::lock_guard hold(mutex);
        over = true;
    }
    changed.notify_one();
    watcher.join();
}

}  // namespace orvel
