#pragma once

#include <optional>
#include <string>

#include "OrvelAgent/Platform/Linux/GLib.h"
#include "OrvelAgent/Platform/Posix/Files.h"

namespace orvel {

// The message buses of D-Bus, without the surprises of the library's own way to them: that starts
// a bus where there is none, and ends the process when the bus goes away.

// nullopt: this process belongs to no session that has a bus.
std::optional<std::string> sessionBusAddress();
std::string systemBusAddress();

// Waits at most `limit`. Null when nobody answers.
GObjectPtr<GDBusConnection> connectToBus(const std::string& address, Duration limit);

// A method of an object, and who has it.
struct BusMethod {
    const char* service;
    const char* path;
    const char* interface;
    const char* name;
};

// A connection that nobody shares. Not thread-safe. Every call waits at most as long as the limit
// given to open().
class Bus {
public:
    // Connects again when the connection was lost. False when nobody answers.
    bool open(const std::string& address, Duration limit);
    bool isOpen() const;

    // `arguments` is a tuple; a floating one is taken over. Null when the call fails, for whatever
    // reason; a service that does not run is not started for it. A descriptor that comes with the
    // answer goes to `descriptor`.
    GVariantPtr call(const BusMethod& method, GVariant* arguments,
                     FileDescriptor* descriptor = nullptr);
    // Without an answer and without a wait.
    void send(const BusMethod& method, GVariant* arguments);
    // The unique name of who owns `service` now; empty when nobody does.
    std::string ownerOf(const std::string& service);

private:
    GObjectPtr<GDBusConnection> connection;
    Duration answerLimit{};
};

}  // namespace orvel
