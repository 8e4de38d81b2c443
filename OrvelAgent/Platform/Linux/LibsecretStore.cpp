#include "OrvelAgent/Platform/Linux/LibsecretStore.h"

#include <libsecret/secret.h>
#include <string.h>

#include <algorithm>
#include <optional>
#include <vector>

#include "OrvelAgent/Platform/Linux/Bus.h"

namespace orvel {

namespace {

struct SecretValueUnref {
    void operator()(SecretValue* value) const { secret_value_unref(value); }
};
using SecretValuePtr = std::unique_ptr<SecretValue, SecretValueUnref>;

struct HashTableUnref {
    void operator()(GHashTable* table) const { g_hash_table_unref(table); }
};
using AttributesPtr = std::unique_ptr<GHashTable, HashTableUnref>;

const SecretSchema* schema() {
    static const SecretSchema made = [] {
        SecretSchema fields = {};
        fields.name = "com.halverton.orvel.Secret";
        fields.flags = SECRET_SCHEMA_NONE;
        fields.attributes[0] = {"service", SECRET_SCHEMA_ATTRIBUTE_STRING};
        fields.attributes[1] = {"account", SECRET_SCHEMA_ATTRIBUTE_STRING};
        return fields;
    }();
    return &made;
}

AttributesPtr attributesOf(const std::string& service, const std::string& account) {
    return AttributesPtr(secret_attributes_build(schema(), "service", service.c_str(), "account",
                                                 account.c_str(), nullptr));
}

SecretValuePtr encoded(ByteView data) {
    std::string text = base64(data);
    SecretValuePtr value(
        secret_value_new(text.data(), static_cast<gssize>(text.size()), "text/plain"));
    explicit_bzero(text.data(), text.size());
    return value;
}

// One request: its time, and the service as it is now. That is not kept: one that was started anew
// knows nothing of the old one's sessions.
class Request {
public:
    explicit Request(Duration limit) : deadline(limit) {
        g_main_context_push_thread_default(context);
        if (!sessionBusAddress()) return;
        // The connection is shared by the whole process, and would by default end it together
        // with the bus.
        bus.reset(g_bus_get_sync(G_BUS_TYPE_SESSION, cancellable(), nullptr));
        if (!bus || g_dbus_connection_is_closed(bus.get())) return;
        g_dbus_connection_set_exit_on_close(bus.get(), FALSE);
        service.reset(secret_service_open_sync(
            SECRET_TYPE_SERVICE, nullptr, SECRET_SERVICE_OPEN_SESSION, cancellable(), nullptr));
    }

    // Drops what is still on its way to objects that are gone: it would keep the connection alive.
    ~Request() {
        service.reset();
        while (g_main_context_iteration(context, FALSE)) {
        }
        g_main_context_pop_thread_default(context);
        g_main_context_unref(context);
    }

    explicit operator bool() const { return service != nullptr; }
    GCancellable* cancellable() const { return deadline.cancellable(); }

    // Where new items go; null when there is none that takes them without a prompt.
    GObjectPtr<SecretCollection> openCollection() const {
        GObjectPtr<SecretCollection> found(
            secret_collection_for_alias_sync(service.get(), SECRET_COLLECTION_DEFAULT,
                                             SECRET_COLLECTION_NONE, cancellable(), nullptr));
        if (found && secret_collection_get_locked(found.get())) found.reset();
        return found;
    }

    // Every item with these attributes, unlocked ones first; nullopt when the service fails.
    std::optional<std::vector<GObjectPtr<SecretItem>>> find(GHashTable* attributes) const {
        GErrorSlot error;
        GList* list = secret_service_search_sync(service.get(), schema(), attributes,
                                                 SECRET_SEARCH_ALL, cancellable(), error.out());
        std::vector<GObjectPtr<SecretItem>> items;
        for (GList* link = list; link; link = link->next) {
            items.emplace_back(static_cast<SecretItem*>(link->data));
        }
        g_list_free(list);
        if (error.isSet()) return std::nullopt;
        std::stable_partition(items.begin(), items.end(),
                              [](const auto& item) { return !secret_item_get_locked(item.get()); });
        return items;
    }

    SecretValuePtr load(SecretItem* item) const {
        if (secret_item_get_locked(item)) return nullptr;
        if (!secret_item_load_secret_sync(item, cancellable(), nullptr)) return nullptr;
        return SecretValuePtr(secret_item_get_secret(item));
    }

    bool create(GHashTable* attributes, ByteView data) const {
        const auto collection = openCollection();
        if (!collection) return false;
        const auto value = encoded(data);
        const GObjectPtr<SecretItem> item(
            secret_item_create_sync(collection.get(), schema(), attributes, "Orvel Agent",
                                    value.get(), SECRET_ITEM_CREATE_NONE, cancellable(), nullptr));
        return item != nullptr;
    }

private:
    const Deadline deadline;
    GMainContext* const context = g_main_context_new();
    GObjectPtr<GDBusConnection> bus;
    GObjectPtr<SecretService> service;
};

}  // namespace

LibsecretStore::LibsecretStore(Duration answerLimit) : limit(answerLimit) {}

bool LibsecretStore::answers() {
    const Request request(limit);
    return request && request.openCollection();
}

SecretStore::Item LibsecretStore::read(const std::string& service, const std::string& account) {
    using Status = Item::Status;
    const Request request(limit);
    if (!request) return {Status::unreadable, {}};
    const auto items = request.find(attributesOf(service, account).get());
    if (!items) return {Status::unreadable, {}};
    if (items->empty()) {
        // A locked collection need not tell what it holds.
        return {request.openCollection() ? Status::missing : Status::unreadable, {}};
    }
    const auto value = request.load(items->front().get());
    if (!value) return {Status::unreadable, {}};
    gsize size = 0;
    const char* text = secret_value_get(value.get(), &size);
    auto data = fromBase64({text, size});
    if (!data) return {Status::unreadable, {}};
    return {Status::found, *std::move(data)};
}

bool LibsecretStore::add(const std::string& service, const std::string& account, ByteView data) {
    const Request request(limit);
    if (!request) return false;
    const auto attributes = attributesOf(service, account);
    const auto items = request.find(attributes.get());
    return items && items->empty() && request.create(attributes.get(), data);
}

bool LibsecretStore::replace(const std::string& service, const std::string& account,
                             ByteView data) {
    const Request request(limit);
    if (!request) return false;
    const auto attributes = attributesOf(service, account);
    const auto items = request.find(attributes.get());
    if (!items) return false;
    if (items->empty()) return request.create(attributes.get(), data);
    if (secret_item_get_locked(items->front().get())) return false;
    return secret_item_set_secret_sync(items->front().get(), encoded(data).get(),
                                       request.cancellable(), nullptr);
}

bool LibsecretStore::remove(const std::string& service, const std::string& account) {
    const Request request(limit);
    if (!request) return false;
    const auto items = request.find(attributesOf(service, account).get());
    if (!items || items->empty() || secret_item_get_locked(items->front().get())) return false;
    return secret_item_delete_sync(items->front().get(), request.cancellable(), nullptr);
}

}  // namespace orvel
