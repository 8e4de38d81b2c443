#include "OrvelAgent/Platform/Linux/AsyncBus.h"

#include <fcntl.h>

#include <boost/asio/posix/stream_descriptor.hpp>
#include <mutex>

#include "OrvelKit/Base/QueueIo.h"

namespace orvel {

// The way from GLib's worker thread to the queue, which may end before that thread knows.
class AsyncBus::Mailbox {
public:
    Mailbox(SerialQueue& receivingQueue, std::weak_ptr<AsyncBus> receiver)
        : queue(&receivingQueue), bus(std::move(receiver)) {}

    void close() {
        const std::lock_guard hold(mutex);
        queue = nullptr;
    }

    // Takes what is meant for us; GLib itself answers those who call us.
    static GDBusMessage* filter(GDBusConnection*, GDBusMessage* message, gboolean incoming,
                                gpointer mailbox) {
        const auto type = g_dbus_message_get_message_type(message);
        if (!incoming || type == G_DBUS_MESSAGE_TYPE_METHOD_CALL) return message;
        (*static_cast<std::shared_ptr<Mailbox>*>(mailbox))->put(GObjectPtr<GDBusMessage>(message));
        return nullptr;
    }

private:
    void put(GObjectPtr<GDBusMessage> message) {
        const std::lock_guard hold(mutex);
        if (!queue) return;
        queue->post([weak = bus, message = std::move(message)] {
            if (const auto self = weak.lock()) self->received(*message);
        });
    }

    std::mutex mutex;
    SerialQueue* queue;
    const std::weak_ptr<AsyncBus> bus;
};

// GLib tells of a lost connection only to those who run a loop of its own, so we look at the socket
// as well.
struct AsyncBus::Hangup {
    boost::asio::posix::stream_descriptor socket;
};

AsyncBus::AsyncBus(SerialQueue& receivingQueue) : queue(receivingQueue) {}

AsyncBus::~AsyncBus() {
    if (mailbox) mailbox->close();
    if (filter != 0) g_dbus_connection_remove_filter(connection.get(), filter);
}

bool AsyncBus::open(const std::string& address, Duration limit) {
    queue.assertCurrent();
    connection = connectToBus(address, limit);
    if (!connection) return false;
    mailbox = std::make_shared<Mailbox>(queue, weak_from_this());
    filter = g_dbus_connection_add_filter(
        connection.get(), Mailbox::filter, new std::shared_ptr<Mailbox>(mailbox),
        [](gpointer held) { delete static_cast<std::shared_ptr<Mailbox>*>(held); });
    watchForHangup();
    return isOpen();
}

bool AsyncBus::isOpen() const {
    return connection && !g_dbus_connection_is_closed(connection.get());
}

void AsyncBus::watchForHangup() {
    queue.assertCurrent();
    GIOStream* stream = g_dbus_connection_get_stream(connection.get());
    if (!G_IS_SOCKET_CONNECTION(stream)) return;
    GSocket* socket = g_socket_connection_get_socket(G_SOCKET_CONNECTION(stream));
    const int descriptor = fcntl(g_socket_get_fd(socket), F_DUPFD_CLOEXEC, 0);
    if (descriptor < 0) return;
    using boost::asio::posix::stream_descriptor;
    hangup.reset(new Hangup{stream_descriptor(ioContext(queue), descriptor)});
    hangup->socket.async_wait(stream_descriptor::wait_error,
                              [weak = weak_from_this()](const boost::system::error_code& error) {
                                  const auto self = weak.lock();
                                  if (self && !error) self->closed();
                              });
}

void AsyncBus::listen(const std::string& matchRule) {
    send({"org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "AddMatch"},
         g_variant_new("(s)", matchRule.c_str()));
}

guint32 AsyncBus::post(const BusMethod& method, GVariant* arguments, GDBusMessageFlags flags) {
    const GVariantPtr owned(g_variant_ref_sink(arguments));
    if (!isOpen()) return 0;
    const GObjectPtr<GDBusMessage> message(
        g_dbus_message_new_method_call(method.service, method.path, method.interface, method.name));
    g_dbus_message_set_body(message.get(), owned.get());
    g_dbus_message_set_flags(message.get(), flags);
    guint32 serial = 0;
    const bool sent = g_dbus_connection_send_message(
        connection.get(), message.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE, &serial, nullptr);
    return sent ? serial : 0;
}

void AsyncBus::send(const BusMethod& method, GVariant* arguments) {
    post(method, arguments,
         static_cast<GDBusMessageFlags>(G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED |
                                        G_DBUS_MESSAGE_FLAGS_NO_AUTO_START));
}

void AsyncBus::call(const BusMethod& method, GVariant* arguments, Duration limit, Answer callback,
                    bool mayStart) {
    queue.assertCurrent();
    const auto serial =
        post(method, arguments,
             mayStart ? G_DBUS_MESSAGE_FLAGS_NONE : G_DBUS_MESSAGE_FLAGS_NO_AUTO_START);
    if (serial == 0) {
        // Never from within the call: the caller may not be ready.
        queue.post([callback = std::move(callback)] { callback(nullptr); });
        return;
    }
    auto timer = queue.after(limit, [weak = weak_from_this(), serial] {
        if (const auto self = weak.lock()) self->answer(serial, nullptr);
    });
    unanswered[serial] = {std::move(callback), std::move(timer)};
}

void AsyncBus::flush(Duration limit) {
    if (!isOpen()) return;
    const Deadline deadline(limit);
    g_dbus_connection_flush_sync(connection.get(), deadline.cancellable(), nullptr);
}

void AsyncBus::received(GDBusMessage& message) {
    GVariant* body = g_dbus_message_get_body(&message);
    const GVariantPtr empty(body ? nullptr : g_variant_ref_sink(g_variant_new("()")));
    if (!body) body = empty.get();
    switch (g_dbus_message_get_message_type(&message)) {
        case G_DBUS_MESSAGE_TYPE_METHOD_RETURN:
            answer(g_dbus_message_get_reply_serial(&message), body);
            break;
        case G_DBUS_MESSAGE_TYPE_ERROR:
            answer(g_dbus_message_get_reply_serial(&message), nullptr);
            break;
        case G_DBUS_MESSAGE_TYPE_SIGNAL: {
            const char* sender = g_dbus_message_get_sender(&message);
            // A copy: its owner may end in it.
            if (const auto callback = onSignal; callback && sender) {
                callback({sender, g_dbus_message_get_path(&message),
                          g_dbus_message_get_interface(&message),
                          g_dbus_message_get_member(&message), body});
            }
            break;
        }
        default:
            break;
    }
}

void AsyncBus::answer(guint32 serial, GVariant* body) {
    queue.assertCurrent();
    // The late answer to a call whose time was over finds nobody.
    if (auto waiting = unanswered.extract(serial)) waiting.mapped().answer(body);
}

void AsyncBus::closed() {
    queue.assertCurrent();
    hangup.reset();
    mailbox->close();
    auto lost = std::move(unanswered);
    unanswered.clear();
    for (auto& [serial, waiting] : lost)
        waiting.answer(nullptr);
    if (const auto callback = onClosed) callback();
}

}  // namespace orvel
