#include "OrvelAgent/Platform/Linux/AccessibleTree.h"

#include <cstring>
#include <deque>

namespace orvel {

namespace {

constexpr auto answerLimit = std::chrono::seconds(1);
constexpr std::size_t mostApplications = 64, mostWindows = 16, mostChildren = 64;
constexpr const char* rootPath = "/org/a11y/atspi/accessible/root";
constexpr const char* accessible = "org.a11y.atspi.Accessible";

bool hasType(GVariant* answer, const char* type) {
    return answer && g_variant_is_of_type(answer, G_VARIANT_TYPE(type));
}

std::vector<AccessibleRef> references(GVariant* answer, std::size_t most) {
    std::vector<AccessibleRef> found;
    if (!hasType(answer, "(a(so))")) return found;
    GVariantIter* each = nullptr;
    g_variant_get(answer, "(a(so))", &each);
    const char *application = nullptr, *path = nullptr;
    while (found.size() < most && g_variant_iter_next(each, "(&s&o)", &application, &path)) {
        if (g_dbus_is_unique_name(application)) found.push_back({application, path});
    }
    g_variant_iter_free(each);
    return found;
}

std::optional<std::uint64_t> stateBits(GVariant* answer) {
    if (!hasType(answer, "(au)")) return std::nullopt;
    const GVariantPtr list(g_variant_get_child_value(answer, 0));
    std::uint64_t bits = 0;
    for (gsize word = 0; word < std::min<gsize>(g_variant_n_children(list.get()), 2); ++word) {
        std::uint32_t half = 0;
        g_variant_get_child(list.get(), word, "u", &half);
        bits |= std::uint64_t(half) << (32 * word);
    }
    return bits;
}

// Whether the attributes are those of a search field: GTK 4 says so in the role's name only.
bool speakOfSearch(GVariant* answer) {
    if (!hasType(answer, "(a{ss})")) return false;
    GVariantIter* each = nullptr;
    g_variant_get(answer, "(a{ss})", &each);
    const char *name = nullptr, *value = nullptr;
    bool found = false;
    while (g_variant_iter_next(each, "{&s&s}", &name, &value)) {
        found = found || (std::strcmp(name, "xml-roles") == 0 && std::strstr(value, "searchbox")) ||
                (std::strcmp(name, "text-input-type") == 0 && std::strcmp(value, "search") == 0);
    }
    g_variant_iter_free(each);
    return found;
}

bool namesSearch(GVariant* answer) {
    if (!hasType(answer, "(s)")) return false;
    const char* name = nullptr;
    g_variant_get(answer, "(&s)", &name);
    return std::strcmp(name, "search box") == 0;
}

// Goes through the elements below a window, the upper ones first, some at a time.
class Walk : public std::enable_shared_from_this<Walk> {
public:
    using Done = AccessibleTree::Done<std::optional<AccessibleRef>>;

    Walk(AccessibleTree accessibleTree, AccessibleRef top, Done whenDone)
        : tree(std::move(accessibleTree)), window(std::move(top)), done(std::move(whenDone)) {
        waiting.push_back(window);
    }

    void goOn() {
        while (done && asked < mostAtOnce && !waiting.empty() && left > 0) {
            const auto next = waiting.front();
            waiting.pop_front();
            --left;
            ++asked;
            tree.states(
                next, [self = shared_from_this(), next](auto states) { self->look(next, states); });
        }
        if (asked == 0) finish(std::nullopt);
    }

private:
    static constexpr int mostAtOnce = 8, mostFailures = 8;

    void look(const AccessibleRef& element, std::optional<std::uint64_t> bits) {
        --asked;
        AccessibleState state;
        state.states = bits.value_or(0);
        if (!bits && ++failures >= mostFailures) return finish(std::nullopt);
        if (state.has(AccessibleState::focused) && element != window) return finish(element);
        // What manages its descendants may have millions.
        const bool seen =
            state.has(AccessibleState::showing) || state.has(AccessibleState::visible);
        if (seen && !state.has(AccessibleState::managesDescendants)) {
            ++asked;
            tree.children(element, [self = shared_from_this()](auto children) {
                --self->asked;
                if (children.size() > mostChildren) children.resize(mostChildren);
                self->waiting.insert(self->waiting.end(), children.begin(), children.end());
                self->goOn();
            });
        }
        goOn();
    }

    void finish(std::optional<AccessibleRef> found) {
        if (const auto call = std::exchange(done, nullptr)) call(std::move(found));
    }

    const AccessibleTree tree;
    const AccessibleRef window;
    Done done;
    std::deque<AccessibleRef> waiting;
    int asked = 0, failures = 0, left = 400;
};

}  // namespace

AccessibleTree::AccessibleTree(const std::shared_ptr<AsyncBus>& bus) : weakBus(bus) {}

void AccessibleTree::ask(const AccessibleRef& element, const char* method,
                         AsyncBus::Answer answer) const {
    const auto bus = weakBus.lock();
    if (!bus) return;
    bus->call({element.application.c_str(), element.path.c_str(), accessible, method},
              g_variant_new("()"), answerLimit, std::move(answer));
}

void AccessibleTree::states(const AccessibleRef& element,
                            Done<std::optional<std::uint64_t>> done) const {
    ask(element, "GetState",
        [done = std::move(done)](GVariant* answer) { done(stateBits(answer)); });
}

void AccessibleTree::children(const AccessibleRef& element,
                              Done<std::vector<AccessibleRef>> done) const {
    ask(element, "GetChildren",
        [done = std::move(done)](GVariant* answer) { done(references(answer, std::size_t(-1))); });
}

void AccessibleTree::describe(const AccessibleRef& element,
                              Done<std::optional<AccessibleState>> done) const {
    struct Inquiry {
        AccessibleState state;
        bool complete = true;
        Done<std::optional<AccessibleState>> done;
    };
    const auto inquiry = std::make_shared<Inquiry>();
    inquiry->done = std::move(done);
    ask(element, "GetRole", [inquiry](GVariant* answer) {
        if (!hasType(answer, "(u)")) return void(inquiry->complete = false);
        g_variant_get(answer, "(u)", &inquiry->state.role);
    });
    ask(element, "GetInterfaces", [inquiry](GVariant* answer) {
        if (!hasType(answer, "(as)")) return void(inquiry->complete = false);
        GVariantIter* each = nullptr;
        g_variant_get(answer, "(as)", &each);
        const char* name = nullptr;
        while (g_variant_iter_next(each, "&s", &name)) {
            if (std::strcmp(name, "org.a11y.atspi.Text") == 0) inquiry->state.hasText = true;
            if (std::strcmp(name, "org.a11y.atspi.EditableText") == 0) {
                inquiry->state.hasEditableText = true;
            }
        }
        g_variant_iter_free(each);
    });
    ask(element, "GetAttributes", [inquiry](GVariant* answer) {
        if (speakOfSearch(answer)) inquiry->state.isSearch = true;
    });
    ask(element, "GetRoleName", [inquiry](GVariant* answer) {
        if (namesSearch(answer)) inquiry->state.isSearch = true;
    });
    // An application answers in the order in which it is asked, and so do the limits run out.
    ask(element, "GetState", [inquiry, element, tree = *this](GVariant* answer) {
        const auto bits = stateBits(answer);
        if (!bits || !inquiry->complete) return inquiry->done(std::nullopt);
        inquiry->state.states = *bits;
        if (inquiry->state.role != AccessibleState::comboBox) {
            return inquiry->done(inquiry->state);
        }
        tree.children(element, [inquiry, tree](const std::vector<AccessibleRef>& parts) {
            // The field of a combo box that has one is its last part, after the list.
            if (parts.empty()) return inquiry->done(inquiry->state);
            tree.states(parts.back(), [inquiry](auto partBits) {
                AccessibleState part;
                part.states = partBits.value_or(0);
                inquiry->state.hasEditablePart =
                    part.has(AccessibleState::editable) && !part.has(AccessibleState::readOnly);
                inquiry->done(inquiry->state);
            });
        });
    });
}

void AccessibleTree::applications(Done<std::vector<AccessibleRef>> done) const {
    ask({"org.a11y.atspi.Registry", rootPath}, "GetChildren",
        [done = std::move(done)](GVariant* answer) { done(references(answer, mostApplications)); });
}

void AccessibleTree::activeWindow(const std::string& application,
                                  Done<std::optional<AccessibleRef>> done) const {
    children({application, rootPath}, [tree = *this, done = std::move(done)](auto windows) mutable {
        if (windows.empty()) return done(std::nullopt);
        if (windows.size() > mostWindows) windows.resize(mostWindows);
        struct Inquiry {
            std::size_t left;
            Done<std::optional<AccessibleRef>> done;
        };
        const auto inquiry = std::make_shared<Inquiry>(Inquiry{windows.size(), std::move(done)});
        for (const auto& window : windows) {
            tree.states(window, [inquiry, window](auto bits) {
                AccessibleState state;
                state.states = bits.value_or(0);
                const bool isActive = state.has(AccessibleState::active);
                const bool isLast = --inquiry->left == 0;
                if (!isActive && !isLast) return;
                if (const auto call = std::exchange(inquiry->done, nullptr)) {
                    call(isActive ? std::optional(window) : std::nullopt);
                }
            });
        }
    });
}

void AccessibleTree::focusedElement(const AccessibleRef& window,
                                    Done<std::optional<AccessibleRef>> done) const {
    const auto bus = weakBus.lock();
    if (!bus) return;
    // One question where the application can search by itself: for one element with the state.
    const std::int32_t words[2] = {1 << AccessibleState::focused, 0};
    constexpr int all = 1, canonicalOrder = 1, count = 1;
    GVariant* rule =
        g_variant_new("(@aiia{ss}iaiiasib)",
                      g_variant_new_fixed_array(G_VARIANT_TYPE_INT32, words, 2, sizeof(words[0])),
                      all, nullptr, all, nullptr, all, nullptr, all, FALSE);
    bus->call({window.application.c_str(), window.path.c_str(), "org.a11y.atspi.Collection",
               "GetMatches"},
              g_variant_new("(@(aiia{ss}iaiiasib)uib)", rule, canonicalOrder, count, TRUE),
              answerLimit,
              [tree = *this, window, done = std::move(done)](GVariant* answer) mutable {
                  if (answer) {
                      const auto found = references(answer, 1);
                      return done(found.empty() ? std::nullopt : std::optional(found.front()));
                  }
                  std::make_shared<Walk>(tree, window, std::move(done))->goOn();
              });
}

void AccessibleTree::wake(const AccessibleRef& window) const {
    ask(window, "GetAttributes", [](GVariant*) {});
}

}  // namespace orvel
