#include "OrvelAgent/Platform/Linux/AccessibilityService.h"

#include <cstring>

namespace orvel {

namespace {

constexpr auto connectLimit = std::chrono::seconds(1);
constexpr auto startLimit = std::chrono::seconds(10);  // of a program
constexpr auto goodbyeLimit = std::chrono::milliseconds(500);

constexpr const char* service = "org.a11y.Bus";
constexpr const char* path = "/org/a11y/bus";
constexpr const char* properties = "org.freedesktop.DBus.Properties";
constexpr const char* status = "org.a11y.Status";

}  // namespace

AccessibilityService::AccessibilityService(SerialQueue& servingQueue) : queue(servingQueue) {}

AccessibilityService::~AccessibilityService() {
    if (!wasSwitchedOn || hasScreenReader || !session) return;
    session->send({service, path, properties, "Set"},
                  g_variant_new("(ssv)", status, "IsEnabled", g_variant_new_boolean(FALSE)));
    session->flush(goodbyeLimit);
}

void AccessibilityService::start() {
    queue.assertCurrent();
    if (session && session->isOpen()) return;
    const auto sessionAddress = sessionBusAddress();
    if (!sessionAddress) return;
    session = std::make_shared<AsyncBus>(queue);
    session->onSignal = [weak = weak_from_this()](const BusSignal& signal) {
        if (const auto self = weak.lock()) self->received(signal);
    };
    session->onClosed = [weak = weak_from_this()] {
        const auto self = weak.lock();
        if (!self) return;
        self->wasSwitchedOn = false;
        self->setAddress({});
    };
    if (!session->open(*sessionAddress, connectLimit)) return session.reset();
    session->listen(
        "type='signal',sender='org.freedesktop.DBus',interface='org.freedesktop.DBus',"
        "member='NameOwnerChanged',arg0='org.a11y.Bus'");
    session->listen(
        "type='signal',sender='org.a11y.Bus',path='/org/a11y/bus',"
        "interface='org.freedesktop.DBus.Properties',member='PropertiesChanged'");
    askAddress(true);
}

void AccessibilityService::askAddress(bool mayStart) {
    session->call(
        {service, path, service, "GetAddress"}, g_variant_new("()"), startLimit,
        [weak = weak_from_this()](GVariant* answer) {
            const auto self = weak.lock();
            if (!self || !answer || !g_variant_is_of_type(answer, G_VARIANT_TYPE("(s)"))) return;
            const char* found = nullptr;
            g_variant_get(answer, "(&s)", &found);
            self->switchOn();
            self->setAddress(found);
        },
        mayStart);
}

void AccessibilityService::setAddress(const std::string& address) {
    if (address == busAddress) return;
    busAddress = address;
    if (const auto callback = onAddress) callback(busAddress);
}

void AccessibilityService::switchOn() {
    session->call(
        {service, path, properties, "GetAll"}, g_variant_new("(s)", status), connectLimit,
        [weak = weak_from_this()](GVariant* answer) {
            const auto self = weak.lock();
            if (!self || !answer || !g_variant_is_of_type(answer, G_VARIANT_TYPE("(a{sv})")))
                return;
            const GVariantPtr all(g_variant_get_child_value(answer, 0));
            gboolean isOn = TRUE, isRead = FALSE;
            g_variant_lookup(all.get(), "IsEnabled", "b", &isOn);
            g_variant_lookup(all.get(), "ScreenReaderEnabled", "b", &isRead);
            self->hasScreenReader = isRead != FALSE;
            if (isOn) return;
            self->wasSwitchedOn = true;
            self->session->send(
                {service, path, properties, "Set"},
                g_variant_new("(ssv)", status, "IsEnabled", g_variant_new_boolean(TRUE)));
        });
}

void AccessibilityService::received(const BusSignal& signal) {
    if (std::strcmp(signal.member, "NameOwnerChanged") == 0 &&
        g_variant_is_of_type(signal.body, G_VARIANT_TYPE("(sss)"))) {
        const char *before = nullptr, *after = nullptr;
        g_variant_get(signal.body, "(&s&s&s)", nullptr, &before, &after);
        if (*before != 0) setAddress({});
        // Whoever needs it starts it: if it keeps falling we do not keep raising it.
        if (*after != 0 && session) askAddress(false);
    } else if (std::strcmp(signal.member, "PropertiesChanged") == 0 &&
               g_variant_is_of_type(signal.body, G_VARIANT_TYPE("(sa{sv}as)"))) {
        const GVariantPtr changed(g_variant_get_child_value(signal.body, 1));
        gboolean isRead = FALSE;
        if (g_variant_lookup(changed.get(), "ScreenReaderEnabled", "b", &isRead)) {
            hasScreenReader = isRead != FALSE;
        }
    }
}

}  // namespace orvel
