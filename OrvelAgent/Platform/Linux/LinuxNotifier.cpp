#include "OrvelAgent/Platform/Linux/LinuxNotifier.h"

#include <algorithm>
#include <cstring>
#include <future>
#include <optional>

namespace orvel {

namespace {

constexpr const char* service = "org.freedesktop.Notifications";
constexpr const char* path = "/org/freedesktop/Notifications";

constexpr auto busLimit = std::chrono::seconds(2);
constexpr auto answerLimit = std::chrono::seconds(10);  // it may have to start first
// Beyond these the oldest goes: they come faster than a service shows them, or are long gone.
constexpr std::size_t maxWaiting = 16, maxNumbers = 32;

BusMethod method(const char* name) {
    return {service, path, service, name};
}

bool hasMarkup(GVariant* capabilities) {
    if (!capabilities || !g_variant_is_of_type(capabilities, G_VARIANT_TYPE("(as)"))) return false;
    const GVariantPtr list(g_variant_get_child_value(capabilities, 0));
    GVariantIter names;
    g_variant_iter_init(&names, list.get());
    const char* name = nullptr;
    while (g_variant_iter_next(&names, "&s", &name)) {
        if (std::strcmp(name, "body-markup") == 0) return true;
    }
    return false;
}

// Phones call themselves as they like; a name is no markup.
std::string escaped(const std::string& text) {
    std::string result;
    for (const char c : text) {
        if (c == '&') {
            result += "&amp;";
        } else if (c == '<') {
            result += "&lt;";
        } else if (c == '>') {
            result += "&gt;";
        } else {
            result += c;
        }
    }
    return result;
}

// A bus ends the connection of whoever sends it anything else.
std::string validUtf8(const std::string& text) {
    const std::unique_ptr<char, decltype(&g_free)> made(
        g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())), g_free);
    return made.get();
}

}  // namespace

std::unique_ptr<Notifier> Notifier::create() {
    return std::make_unique<LinuxNotifier>();
}

LinuxNotifier::LinuxNotifier() = default;

LinuxNotifier::~LinuxNotifier() {
    std::promise<void> gone;
    queue.post([this, &gone] {
        queue.assertCurrent();
        waiting.clear();
        bus.reset();
        gone.set_value();
    });
    gone.get_future().wait();
}

void LinuxNotifier::post(Notification notification) {
    queue.post([this, notification = std::move(notification)]() mutable {
        queue.assertCurrent();
        if (waiting.size() == maxWaiting) waiting.erase(waiting.begin() + (underWay ? 1 : 0));
        waiting.push_back(std::move(notification));
        if (!underWay) showNext();
    });
}

bool LinuxNotifier::connect() {
    if (bus && bus->isOpen()) return true;
    bus.reset();
    numbers.clear();
    const auto address = sessionBusAddress();
    if (!address) return false;
    auto made = std::make_shared<AsyncBus>(queue);
    made->onSignal = [this](const BusSignal& signal) {
        queue.assertCurrent();
        received(signal);
    };
    if (!made->open(*address, busLimit)) return false;
    made->listen(std::string("type='signal',sender='org.freedesktop.DBus',"
                             "member='NameOwnerChanged',arg0='") +
                 service + "'");
    bus = std::move(made);
    return true;
}

void LinuxNotifier::showNext() {
    underWay = !waiting.empty();
    if (!underWay) return;
    if (!connect()) {
        waiting.clear();
        underWay = false;
        return;
    }
    // Asked each time: the service may be another one by now.
    bus->call(
        method("GetCapabilities"), g_variant_new("()"), answerLimit,
        [this](GVariant* capabilities) {
            queue.assertCurrent();
            show(hasMarkup(capabilities));
        },
        true);
}

void LinuxNotifier::show(bool bodyIsMarkup) {
    if (waiting.empty()) return;  // this is the end
    const Notification& notification = waiting.front();
    const auto before = std::find_if(numbers.begin(), numbers.end(), [&](auto& one) {
        return one.first == notification.identifier;
    });
    const std::string title = validUtf8(notification.title);
    const std::string body = validUtf8(notification.body);
    GVariantBuilder actions, hints;
    g_variant_builder_init(&actions, G_VARIANT_TYPE("as"));
    g_variant_builder_init(&hints, G_VARIANT_TYPE("a{sv}"));
    g_variant_builder_add(&hints, "{sv}", "desktop-entry", g_variant_new_string("orvel-agent"));
    g_variant_builder_add(&hints, "{sv}", "sound-name",
                          g_variant_new_string("message-new-instant"));
    bus->call(
        method("Notify"),
        g_variant_new("(susssasa{sv}i)", "Orvel Agent",
                      before == numbers.end() ? 0 : before->second, "orvel-agent", title.c_str(),
                      (bodyIsMarkup ? escaped(body) : body).c_str(), &actions, &hints, -1),
        answerLimit,
        [this](GVariant* answer) {
            queue.assertCurrent();
            shown(answer);
        },
        true);
}

void LinuxNotifier::shown(GVariant* answer) {
    if (waiting.empty()) return;
    const std::string identifier = std::move(waiting.front().identifier);
    waiting.pop_front();
    if (answer && g_variant_is_of_type(answer, G_VARIANT_TYPE("(u)"))) {
        guint32 number = 0;
        g_variant_get(answer, "(u)", &number);
        std::erase_if(numbers, [&](auto& one) { return one.first == identifier; });
        numbers.emplace_back(identifier, number);
        if (numbers.size() > maxNumbers) numbers.pop_front();
    }
    showNext();
}

void LinuxNotifier::received(const BusSignal& signal) {
    // Another one counts anew, and would replace somebody else's.
    if (std::strcmp(signal.member, "NameOwnerChanged") == 0) numbers.clear();
}

}  // namespace orvel
