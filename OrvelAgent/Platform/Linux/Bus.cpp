#include "OrvelAgent/Platform/Linux/Bus.h"

#include <gio/gunixfdlist.h>
#include <sys/stat.h>

#include <cstdlib>

namespace orvel {

std::optional<std::string> sessionBusAddress() {
    if (const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS"); address && *address) {
        return address;
    }
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    if (!runtime || runtime[0] != '/') return std::nullopt;
    const std::string path = std::string(runtime) + "/bus";
    struct stat found;
    if (stat(path.c_str(), &found) != 0 || !S_ISSOCK(found.st_mode)) return std::nullopt;
    const std::unique_ptr<char, decltype(&g_free)> escaped(
        g_dbus_address_escape_value(path.c_str()), g_free);
    return std::string("unix:path=") + escaped.get();
}

std::string systemBusAddress() {
    const char* address = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
    return address && *address ? address : "unix:path=/run/dbus/system_bus_socket";
}

GObjectPtr<GDBusConnection> connectToBus(const std::string& address, Duration limit) {
    const Deadline deadline(limit);
    constexpr auto flags =
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    return GObjectPtr<GDBusConnection>(g_dbus_connection_new_for_address_sync(
        address.c_str(), flags, nullptr, deadline.cancellable(), nullptr));
}

bool Bus::open(const std::string& address, Duration limit) {
    if (isOpen()) return true;
    answerLimit = limit;
    connection = connectToBus(address, limit);
    return isOpen();
}

bool Bus::isOpen() const {
    return connection && !g_dbus_connection_is_closed(connection.get());
}

GVariantPtr Bus::call(const BusMethod& method, GVariant* arguments, FileDescriptor* descriptor) {
    const GVariantPtr owned(g_variant_ref_sink(arguments));
    if (!isOpen()) return nullptr;
    const auto limit = std::chrono::duration_cast<std::chrono::milliseconds>(answerLimit).count();
    GUnixFDList* received = nullptr;
    GVariantPtr answer(g_dbus_connection_call_with_unix_fd_list_sync(
        connection.get(), method.service, method.path, method.interface, method.name, owned.get(),
        nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START, static_cast<int>(limit), nullptr, &received,
        nullptr, nullptr));
    const GObjectPtr<GUnixFDList> descriptors(received);
    if (answer && descriptor && descriptors && g_unix_fd_list_get_length(descriptors.get()) > 0) {
        *descriptor = FileDescriptor(g_unix_fd_list_get(descriptors.get(), 0, nullptr));
    }
    return answer;
}

void Bus::send(const BusMethod& method, GVariant* arguments) {
    const GVariantPtr owned(g_variant_ref_sink(arguments));
    if (!isOpen()) return;
    g_dbus_connection_call(connection.get(), method.service, method.path, method.interface,
                           method.name, owned.get(), nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START, -1,
                           nullptr, nullptr, nullptr);
}

std::string Bus::ownerOf(const std::string& service) {
    const auto answer = call(
        {"org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetNameOwner"},
        g_variant_new("(s)", service.c_str()));
    if (!answer || !g_variant_is_of_type(answer.get(), G_VARIANT_TYPE("(s)"))) return {};
    const char* owner = nullptr;
    g_variant_get(answer.get(), "(&s)", &owner);
    return owner;
}

}  // namespace orvel
