#include "OrvelAgent/Platform/Linux/AvahiAdvertiser.h"

#include <avahi-client/client.h>
#include <avahi-client/publish.h>
#include <avahi-common/alternative.h>
#include <avahi-common/domain.h>
#include <avahi-common/error.h>
#include <avahi-common/malloc.h>
#include <avahi-common/thread-watch.h>
#include <avahi-common/timeval.h>
#include <glib.h>

#include <cstdio>

namespace orvel {

namespace {

constexpr unsigned retryMilliseconds = 5000;
// Of names tried in a row. More collisions than this are no collisions.
constexpr int maxRenames = 100;

}  // namespace

// Everything but construction and destruction runs on the poll's thread.
class AvahiAdvertiser::Registration {
public:
    Registration(std::string serviceName, std::string serviceType, std::uint16_t servicePort)
        : wantedName(std::move(serviceName)),
          type(std::move(serviceType)),
          port(servicePort),
          poll(avahi_threaded_poll_new()) {
        if (!poll) return;
        connectAfter(0);
        avahi_threaded_poll_start(poll);
    }

    ~Registration() {
        if (!poll) return;
        avahi_threaded_poll_stop(poll);
        if (client) avahi_client_free(client);  // its group with it
        avahi_threaded_poll_free(poll);         // its timeouts with it
    }

    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;

private:
    static Registration& of(void* registration) {
        return *static_cast<Registration*>(registration);
    }

    // The client is made and replaced by a timeout, never inside one of its own callbacks.
    void connectAfter(unsigned milliseconds) {
        const AvahiPoll* api = avahi_threaded_poll_get(poll);
        timeval when;
        avahi_elapse_time(&when, milliseconds, 0);
        if (reconnect) {
            api->timeout_update(reconnect, &when);
            return;
        }
        reconnect = api->timeout_new(
            api, &when, [](AvahiTimeout*, void* self) { of(self).connect(); }, this);
    }

    void connect() {
        avahi_threaded_poll_get(poll)->timeout_update(reconnect, nullptr);
        group = nullptr;
        if (client) avahi_client_free(client);
        client = nullptr;
        client = avahi_client_new(
            avahi_threaded_poll_get(poll), AVAHI_CLIENT_NO_FAIL,
            [](AvahiClient* from, AvahiClientState state, void* self) {
                of(self).clientChanged(from, state);
            },
            this, nullptr);
        if (client) return;
        group = nullptr;
        connectAfter(retryMilliseconds);  // there is no system bus
    }

    // `from`: the first call comes before avahi_client_new() has returned.
    void clientChanged(AvahiClient* from, AvahiClientState state) {
        switch (state) {
            case AVAHI_CLIENT_S_RUNNING:
                name = wantedName;
                publish(from);
                break;
            case AVAHI_CLIENT_S_COLLISION:
            case AVAHI_CLIENT_S_REGISTERING:
                // The host's own name changes: what refers to it is published anew afterwards.
                if (group) avahi_entry_group_reset(group);
                break;
            case AVAHI_CLIENT_FAILURE:
                // The daemon or the bus has gone. A new client waits for the daemon; the bus may
                // need a moment.
                group = nullptr;  // freed with the client
                connectAfter(
                    avahi_client_errno(from) == AVAHI_ERR_DISCONNECTED ? 0 : retryMilliseconds);
                break;
            case AVAHI_CLIENT_CONNECTING:
                group = nullptr;
                break;
        }
    }

    void groupChanged(AvahiEntryGroup* from, AvahiEntryGroupState state) {
        if (state != AVAHI_ENTRY_GROUP_COLLISION || from != group) return;
        rename();
        publish(avahi_entry_group_get_client(from));
    }

    void rename() {
        char* next = avahi_alternative_service_name(name.c_str());
        name = next;
        avahi_free(next);
    }

    void publish(AvahiClient* from) {
        if (!group) {
            group = avahi_entry_group_new(
                from,
                [](AvahiEntryGroup* changed, AvahiEntryGroupState state, void* self) {
                    of(self).groupChanged(changed, state);
                },
                this);
        }
        if (!group) return fail(avahi_client_errno(from));
        int error = AVAHI_ERR_COLLISION;
        for (int renames = 0; error == AVAHI_ERR_COLLISION && renames < maxRenames; ++renames) {
            if (renames > 0) rename();
            avahi_entry_group_reset(group);
            error = avahi_entry_group_add_service(group, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC,
                                                  AvahiPublishFlags{}, name.c_str(), type.c_str(),
                                                  nullptr, nullptr, port, nullptr);
        }
        if (error == AVAHI_OK) error = avahi_entry_group_commit(group);
        if (error != AVAHI_OK) fail(error);
    }

    // A daemon that has just gone is no failure: its return is waited for.
    void fail(int error) {
        if (error == AVAHI_ERR_DISCONNECTED || error == AVAHI_ERR_BAD_STATE ||
            error == AVAHI_ERR_DBUS_ERROR) {
            connectAfter(retryMilliseconds);
            return;
        }
        std::fprintf(stderr, "orvel: the service cannot be advertised: %s\n",
                     avahi_strerror(error));
    }

    const std::string wantedName;
    const std::string type;
    const std::uint16_t port;
    std::string name;  // the one in use: wantedName, or an alternative of it
    AvahiThreadedPoll* const poll;
    AvahiTimeout* reconnect = nullptr;
    AvahiClient* client = nullptr;
    AvahiEntryGroup* group = nullptr;
};

std::unique_ptr<ServiceAdvertiser> ServiceAdvertiser::create() {
    return std::make_unique<AvahiAdvertiser>();
}

AvahiAdvertiser::AvahiAdvertiser() = default;
AvahiAdvertiser::~AvahiAdvertiser() = default;

void AvahiAdvertiser::start(const std::string& name, const std::string& type, std::uint16_t port) {
    const std::lock_guard hold(mutex);
    registration = std::make_unique<Registration>(serviceName(name), type, port);
}

void AvahiAdvertiser::stop() {
    const std::lock_guard hold(mutex);
    registration.reset();
}

std::string AvahiAdvertiser::serviceName(std::string_view name) {
    constexpr std::size_t maxBytes = AVAHI_LABEL_MAX - 1;
    const std::unique_ptr<char, decltype(&g_free)> made(
        g_utf8_make_valid(name.data(), static_cast<gssize>(name.size())), g_free);
    std::string valid = made.get();
    if (valid.size() <= maxBytes) return valid;
    std::size_t end = maxBytes;
    while ((static_cast<unsigned char>(valid[end]) & 0xC0) == 0x80)
        --end;
    valid.resize(end);
    return valid;
}

}  // namespace orvel
