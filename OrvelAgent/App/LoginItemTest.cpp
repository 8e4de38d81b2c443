#include "OrvelAgent/App/LoginItem.h"

#include <gtest/gtest.h>

#include <QVariant>

#include "OrvelAgent/Platform/Fake/FakeLoginService.h"
#include "OrvelKit/Base/FakeDefaults.h"

namespace orvel {
namespace {

struct FirstRunRow {
    const char* name;
    std::map<std::string, FakeDefaults::Value> stored;
    bool registered, serviceRefuses, storeRefuses;
    bool enabled;
    int calls;
};

TEST(LoginItem, isSwitchedOnByTheFirstRunAlone) {
    const FirstRunRow rows[] = {
        {"fresh", {}, false, false, false, true, 1},
        {"fresh, the system refuses", {}, false, true, false, false, 1},
        {"fresh, registered by somebody", {}, true, false, false, true, 1},
        {"fresh, and it could not be noted", {}, false, false, true, false, 0},
        {"a foreign value", {{"loginItemDefaulted", "yes"}}, false, false, false, true, 1},
        {"later, switched off", {{"loginItemDefaulted", true}}, false, false, false, false, 0},
        {"later, on", {{"loginItemDefaulted", true}}, true, false, false, true, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        FakeDefaults defaults;
        defaults.values = row.stored;
        defaults.refusesWrites = row.storeRefuses;
        FakeLoginService service;
        service.registered = row.registered;
        service.refuses = row.serviceRefuses;
        const LoginItem item(service, defaults);
        EXPECT_EQ(item.enabled(), row.enabled);
        EXPECT_EQ(service.calls, row.calls);
        EXPECT_EQ(defaults.boolean("loginItemDefaulted").value_or(false), !row.storeRefuses);
    }
}

TEST(LoginItem, showsWhatTheSystemDoesAndTellsEachAttempt) {
    FakeDefaults defaults;
    FakeLoginService service;
    LoginItem item(service, defaults);
    int changes = 0;
    QObject::connect(&item, &LoginItem::enabledChanged, [&] { ++changes; });
    item.setProperty("enabled", false);
    EXPECT_FALSE(item.enabled());
    EXPECT_FALSE(service.registered);
    service.refuses = true;
    item.setEnabled(true);
    EXPECT_FALSE(item.enabled());
    EXPECT_EQ(changes, 2) << "the switch has to fall back";
    item.refresh();
    EXPECT_EQ(changes, 2);
    service.registered = true;  // by somebody else
    item.refresh();
    EXPECT_TRUE(item.enabled());
    EXPECT_EQ(changes, 3);
}

}  // namespace
}  // namespace orvel
