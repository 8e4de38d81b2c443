#include "OrvelAgent/Platform/Linux/FocusObserver.h"

namespace orvel {

namespace {

constexpr auto connectLimit = std::chrono::seconds(1);
constexpr auto startLimit = std::chrono::seconds(10);  // of the registry
// Between two fields there is a moment in which none has the focus.
constexpr auto lossDelay = std::chrono::milliseconds(100);
// A window that becomes active tells by itself what is focused, as a rule. Programs that have just
// started cannot answer yet, browsers need time to describe a page that nobody asked for before.
// In ms, each after the one before.
constexpr int searchDelays[] = {150, 250, 400, 800, 1600};
// An application that was too busy to describe what has the focus is asked again.
constexpr auto retryDelay = std::chrono::seconds(1);
constexpr int mostRetries = 3;
constexpr std::size_t mostInquiries = 8;

constexpr const char* registry = "org.a11y.atspi.Registry";
constexpr const char* registryPath = "/org/a11y/atspi/registry";
constexpr const char* events[] = {"object:state-changed:focused", "window:activate",
                                  "window:deactivate"};
constexpr const char* matches[] = {
    "type='signal',interface='org.a11y.atspi.Event.Object',member='StateChanged',arg0='focused'",
    "type='signal',interface='org.a11y.atspi.Event.Window',member='Activate'",
    "type='signal',interface='org.a11y.atspi.Event.Window',member='Deactivate'",
    // As some versions of GTK 4 spell it.
    "type='signal',interface='org.a11y.atspi.Event.Window',member='activate'",
    "type='signal',interface='org.a11y.atspi.Event.Window',member='deactivate'",
    // An application joins.
    "type='signal',sender='org.a11y.atspi.Registry',member='ChildrenChanged'",
    "type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged'"};

bool is(const char* text, const char* other) {
    return g_ascii_strcasecmp(text, other) == 0;
}

// Signals tell what has changed, a number or whether it is so, another number, and more, whose
// types differ between toolkits and versions.
GVariantPtr part(GVariant* body, gsize index, const char* type) {
    if (g_variant_n_children(body) <= index) return nullptr;
    GVariantPtr child(g_variant_get_child_value(body, index));
    return g_variant_is_of_type(child.get(), G_VARIANT_TYPE(type)) ? std::move(child) : nullptr;
}

bool speaksOf(GVariant* body, const char* what) {
    const auto name = part(body, 0, "s");
    return name && is(g_variant_get_string(name.get(), nullptr), what);
}

// Whether an element has the focus now; nullopt: the signal is about something else.
std::optional<bool> focusChange(GVariant* body) {
    const auto isSet = part(body, 1, "i");
    if (!isSet || !speaksOf(body, "focused")) return std::nullopt;
    return g_variant_get_int32(isSet.get()) != 0;
}

// Which application has joined the others, if that is what the signal tells.
std::optional<std::string> joined(GVariant* body) {
    const auto boxed = part(body, 3, "v");
    if (!boxed || !speaksOf(body, "add")) return std::nullopt;
    const GVariantPtr root(g_variant_get_variant(boxed.get()));
    if (!g_variant_is_of_type(root.get(), G_VARIANT_TYPE("(so)"))) return std::nullopt;
    const char* application = nullptr;
    g_variant_get_child(root.get(), 0, "&s", &application);
    return g_dbus_is_unique_name(application) ? std::optional<std::string>(application)
                                              : std::nullopt;
}

}  // namespace

FocusObserver::FocusObserver(SerialQueue& observingQueue) : queue(observingQueue) {}

void FocusObserver::connect(const std::string& address) {
    queue.assertCurrent();
    forget();
    searching.cancel();
    activeApplication.clear();
    unsure.clear();
    inquiries.clear();
    mustInquire = false;
    registering = 0;
    bus.reset();
    if (address.empty()) return;
    bus = std::make_shared<AsyncBus>(queue);
    bus->onSignal = [weak = weak_from_this()](const BusSignal& signal) {
        const auto self = weak.lock();
        if (!self) return;
        self->queue.assertCurrent();
        self->received(signal);
    };
    bus->onClosed = [weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->connect({});
    };
    if (!bus->open(address, connectLimit)) return bus.reset();
    for (const char* match : matches)
        bus->listen(match);
    registerEvents();
}

void FocusObserver::registerEvents() {
    if (registering != 0) return;
    for (const char* event : events) {
        ++registering;
        bus->call(
            {registry, registryPath, registry, "RegisterEvent"}, g_variant_new("(s)", event),
            startLimit,
            [weak = weak_from_this()](GVariant* answer) {
                const auto self = weak.lock();
                if (!self) return;
                self->queue.assertCurrent();
                if (--self->registering == 0 && answer) self->lookAround();
            },
            true);
    }
}

void FocusObserver::lookAround() {
    AccessibleTree(bus).applications(
        [weak = weak_from_this()](const std::vector<AccessibleRef>& all) {
            const auto self = weak.lock();
            if (!self) return;
            self->queue.assertCurrent();
            for (const auto& root : all)
                self->lookAt(root.application);
        });
}

void FocusObserver::lookAt(const std::string& application) {
    AccessibleTree(bus).activeWindow(
        application, [weak = weak_from_this()](const std::optional<AccessibleRef>& window) {
            const auto self = weak.lock();
            if (!self || !window) return;
            self->queue.assertCurrent();
            const bool isNews = self->activeApplication != window->application;
            if (isNews || !self->focused) self->activated(*window);
        });
}

void FocusObserver::received(const BusSignal& signal) {
    if (is(signal.member, "NameOwnerChanged")) {
        if (!g_variant_is_of_type(signal.body, G_VARIANT_TYPE("(sss)"))) return;
        const char *name = nullptr, *before = nullptr, *after = nullptr;
        g_variant_get(signal.body, "(&s&s&s)", &name, &before, &after);
        if (*after == 0) return vanished(name);
        // A new one knows nothing of us.
        if (is(name, registry)) registerEvents();
        return;
    }
    if (is(signal.member, "ChildrenChanged")) {
        // Its window may have become active before it could tell.
        if (const auto application = joined(signal.body)) lookAt(*application);
        return;
    }
    const AccessibleRef source{signal.sender, signal.path};
    if (is(signal.member, "Activate")) return activated(source);
    if (is(signal.member, "Deactivate")) {
        if (activeApplication == source.application) activeApplication.clear();
        if (focused && focused->application == source.application) lost();
        return;
    }
    if (!is(signal.member, "StateChanged")) return;
    const auto hasFocus = focusChange(signal.body);
    if (!hasFocus) return;
    if (*hasFocus) {
        gained(source);
    } else if (focused == source) {
        lost();
    }
}

void FocusObserver::vanished(const std::string& application) {
    if (activeApplication == application) activeApplication.clear();
    if (focused && focused->application == application) forget();
}

void FocusObserver::gained(const AccessibleRef& element) {
    const auto& application = element.application;
    if (activeApplication == application) return follow(element);
    // A window in the background may move its focus too: then it is not the keyboard's.
    const bool isAsked = !unsure.insert_or_assign(application, element).second;
    if (isAsked) return;
    AccessibleTree(bus).activeWindow(application, [weak = weak_from_this(), application](
                                                      const std::optional<AccessibleRef>& window) {
        const auto self = weak.lock();
        if (!self) return;
        self->queue.assertCurrent();
        const auto newest = self->unsure.extract(application);
        if (!window || !newest) return;
        self->activeApplication = application;
        self->follow(newest.mapped());
    });
}

void FocusObserver::lost() {
    losing = queue.after(lossDelay, [weak = weak_from_this()] {
        const auto self = weak.lock();
        if (!self) return;
        self->queue.assertCurrent();
        self->forget();
    });
}

void FocusObserver::follow(const AccessibleRef& element) {
    losing.cancel();
    retries = 0;
    focused = element;
    inquire(element);
}

void FocusObserver::inquire(const AccessibleRef& element) {
    // Most say everything twice.
    const auto key = element.application + element.path;
    if (inquiries.count(key) != 0) return;
    mustInquire = inquiries.size() >= mostInquiries;
    if (mustInquire) return;
    inquiries.insert(key);
    AccessibleTree(bus).describe(
        element, [weak = weak_from_this(), element](const std::optional<AccessibleState>& state) {
            const auto self = weak.lock();
            if (!self) return;
            self->queue.assertCurrent();
            self->described(element, state);
        });
}

void FocusObserver::described(const AccessibleRef& element,
                              const std::optional<AccessibleState>& state) {
    inquiries.erase(element.application + element.path);
    if (focused == element) {
        if (!state) return undescribed(element);
        searching.cancel();
        if (state->has(AccessibleState::defunct)) return forget();
        report(state->element());
    } else if (focused && mustInquire) {
        inquire(*focused);
    }
}

void FocusObserver::undescribed(const AccessibleRef& element) {
    // In a window that has just become active the search goes on.
    if (searching.isPending() || ++retries > mostRetries) return forget();
    report(std::nullopt);
    searching = queue.after(retryDelay, [weak = weak_from_this(), element] {
        const auto self = weak.lock();
        if (!self) return;
        self->queue.assertCurrent();
        if (self->focused == element) self->inquire(element);
    });
}

void FocusObserver::activated(const AccessibleRef& window) {
    activeApplication = window.application;
    if (focused && focused->application != window.application) lost();
    AccessibleTree(bus).wake(window);
    searchSoon(window, 0);
}

void FocusObserver::searchSoon(const AccessibleRef& window, std::size_t tries) {
    if (tries == std::size(searchDelays)) return;
    searching = queue.after(
        std::chrono::milliseconds(searchDelays[tries]), [weak = weak_from_this(), window, tries] {
            const auto self = weak.lock();
            if (!self) return;
            self->queue.assertCurrent();
            if (self->activeApplication != window.application) return;
            self->searchSoon(window, tries + 1);
            AccessibleTree(self->bus).focusedElement(
                window, [weak, before = self->focused](const std::optional<AccessibleRef>& found) {
                    const auto searcher = weak.lock();
                    if (!searcher || !found) return;
                    searcher->queue.assertCurrent();
                    // Unless it has moved meanwhile.
                    if (searcher->focused == before) searcher->follow(*found);
                });
        });
}

void FocusObserver::forget() {
    losing.cancel();
    focused.reset();
    report(std::nullopt);
}

void FocusObserver::report(const std::optional<Element>& element) {
    if (element == reported) return;
    reported = element;
    if (const auto callback = onElement) callback(element);
}

}  // namespace orvel
