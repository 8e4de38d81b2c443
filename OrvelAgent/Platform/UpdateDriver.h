#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <variant>

#include "OrvelAgent/Platform/HostInfo.h"
#include "OrvelAgent/Platform/StateStores.h"
#include "OrvelKit/Base/Defaults.h"
#include "OrvelKit/Base/SerialQueue.h"

namespace orvel {

// A newer version that the feed offers. Its texts are the feed's: shown as text, never as anything
// else.
struct AvailableUpdate {
    std::string version;         // what versions are compared by
    std::string displayVersion;  // what people see: "1.4"; one line
    std::string notes;           // what is new, HTML as feeds have it; may be empty
    std::uint64_t length = 0;    // of its package, in bytes; 0: not known
    bool operator==(const AvailableUpdate&) const = default;
};

enum class UpdateFailure {
    unreachable,   // the feed or the package could not be loaded, or not to its end
    unreadable,    // what came is no feed, or one beyond every reasonable size
    notGenuine,    // the package is not what was signed, or is none of a newer version
    noRoom,        // nowhere to put the package
    notInstalled,  // the system's installer gave up
};

// How far a session of a driver without an interface of its own has come. A session that nobody
// asked for shows nothing before `found`.
struct UpdateState {
    struct Idle {
        bool operator==(const Idle&) const = default;
    };
    struct Checking {
        bool operator==(const Checking&) const = default;
    };
    struct UpToDate {
        bool operator==(const UpToDate&) const = default;
    };
    struct Found {  // install() loads it
        AvailableUpdate update;
        bool operator==(const Found&) const = default;
    };
    struct Loading {
        AvailableUpdate update;
        std::uint64_t received = 0;  // bytes of update.length; all of them: it is being verified
        bool operator==(const Loading&) const = default;
    };
    struct Ready {  // verified; install() hands it to the system
        AvailableUpdate update;
        bool operator==(const Ready&) const = default;
    };
    struct Installing {  // the system asks its user, then installs
        AvailableUpdate update;
        bool operator==(const Installing&) const = default;
    };
    struct Installed {  // the next start of the program runs it
        AvailableUpdate update;
        bool operator==(const Installed&) const = default;
    };
    struct Opened {  // another program of the system has it now, or shows where it lies
        AvailableUpdate update;
        bool operator==(const Opened&) const = default;
    };
    struct Failed {
        UpdateFailure reason;
        bool operator==(const Failed&) const = default;
    };

    std::variant<Idle, Checking, UpToDate, Found, Loading, Ready, Installing, Installed, Opened,
                 Failed>
        value;
    bool operator==(const UpdateState&) const = default;
};

// What looks for new versions of this program, on its own once a day and when asked to, and gets
// them installed: on the Mac its update framework, on Linux a signed feed and the system's package
// installer. When to remind whom of what is decided above it (Updater).
//
// A session begins when a check finds something to show and lasts until that is dismissed, skipped
// or installed. Belongs to the main queue: every call and callback is there; no call waits, and no
// callback comes from inside a call or after the driver is gone.
class UpdateDriver {
public:
    struct Callbacks {
        // canCheck() has changed.
        std::function<void()> onCanCheck;
        // A check found `update`. `userInitiated`: somebody asked for that check.
        // `standardInterface`: the driver's own interface will show it now; otherwise nothing is
        // shown until somebody attends to it.
        std::function<void(const AvailableUpdate& update, bool standardInterface,
                           bool userInitiated)>
            willHandleShowingUpdate;
        // For the first time somebody looks at an update that was found.
        std::function<void(const AvailableUpdate& update)> didReceiveUserAttention;
        // The session is over, whatever came of it.
        std::function<void()> willFinishUpdateSession;
        // Only from drivers without an interface of their own.
        std::function<void(const UpdateState&)> onState;
    };

    virtual ~UpdateDriver() = default;

    // Once, before any other call; checks of its own begin here.
    virtual void start(Callbacks callbacks) = 0;

    // It shows what it finds and does by itself: then onState never comes, install() is
    // checkForUpdates(), and skip() and dismiss() mean nothing.
    virtual bool hasInterface() const = 0;

    // False: there is nowhere to look or nothing to install with, in this build or on this system;
    // then canCheck() and automaticallyChecks() are false for good. Never changes.
    virtual bool isConfigured() const { return true; }

    // False: it is not configured, or busy in a way that cannot be shown.
    virtual bool canCheck() const = 0;
    // The user's setting, which is kept; at first on, and off for an agent on a state folder of its
    // own (--state-dir).
    virtual bool automaticallyChecks() const = 0;
    virtual void setAutomaticallyChecks(bool checks) = 0;

    // Somebody wants to know, and is told: by the interface, or by states up to `found`,
    // `upToDate` or `failed`. While a session has something to show it is shown again instead.
    virtual void checkForUpdates() = 0;

    // From `found`: loads the package, then `ready`. From `ready`: installs it. Otherwise nothing.
    virtual void install() = 0;
    // This version will not be found again by the driver's own checks. Ends the session.
    virtual void skip() = 0;
    // Ends the session, what is under way included; not while the system installs.
    virtual void dismiss() = 0;

    // Outlived by all that it is given.
    static std::unique_ptr<UpdateDriver> create(SerialQueue& mainQueue, Defaults& defaults,
                                                HostInfo& host, const StateLocation& location);
};

}  // namespace orvel
