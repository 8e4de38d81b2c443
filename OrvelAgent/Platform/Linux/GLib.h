#pragma once

#include <gio/gio.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

#include "OrvelKit/Base/Clock.h"

namespace orvel {

// Owners of what GLib hands out.

struct GObjectUnref {
    void operator()(void* object) const { g_object_unref(object); }
};
template <class T>
using GObjectPtr = std::unique_ptr<T, GObjectUnref>;

struct GVariantUnref {
    void operator()(GVariant* variant) const { g_variant_unref(variant); }
};
using GVariantPtr = std::unique_ptr<GVariant, GVariantUnref>;

// Where a call puts its error; used once.
class GErrorSlot {
public:
    GErrorSlot() = default;
    GErrorSlot(const GErrorSlot&) = delete;
    GErrorSlot& operator=(const GErrorSlot&) = delete;
    ~GErrorSlot() { g_clear_error(&error); }

    GError** out() { return &error; }
    bool isSet() const { return error != nullptr; }

private:
    GError* error = nullptr;
};

// Cancels the calls that were given its cancellable when `limit` is over, so that a service which
// does not answer cannot hold its caller. It ends with this object.
class Deadline {
public:
    explicit Deadline(Duration limit);
    ~Deadline();
    Deadline(const Deadline&) = delete;
    Deadline& operator=(const Deadline&) = delete;

    GCancellable* cancellable() const { return cancel.get(); }

private:
    const GObjectPtr<GCancellable> cancel{g_cancellable_new()};
    std::mutex mutex;
    std::condition_variable changed;
    bool over = false;
    std::thread watcher;
};

}  // namespace orvel
