#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "OrvelAgent/Platform/Linux/PackageFolder.h"
#include "OrvelAgent/Platform/Linux/PackageInstaller.h"
#include "OrvelAgent/Platform/UpdateDriver.h"
#include "OrvelAgent/Update/Appcast.h"
#include "OrvelAgent/Update/HttpsFetch.h"
#include "OrvelAgent/Update/UpdateSchedule.h"

namespace orvel {

// What is fixed when the program is built or installed.
struct UpdateSetup {
    Url feed;                 // https
    Bytes publicKey;          // Ed25519, 32 bytes
    std::string version;      // of this program where no package has brought it
    std::string packageName;  // of the package that brings it
    Appcast::Target target;   // of this machine
    std::string folder;       // for packages that are loaded; absolute
    bool automatic = true;    // it looks on its own as long as the user has not said
};

// Looking for updates, loading and verifying one, and having it installed: the states of
// UpdateState, one session after the other. Nothing of the feed is believed: the package has to
// carry the signature of the build's key over exactly the length that the feed gives, and to say
// itself that it is this program, for this machine, in the version that the feed promised, which
// is newer than the installed one; an old package under a new name is refused like a foreign one.
// It is read and verified again right before the system's installer gets it.
//
// Belongs to the queue, where what waits for the disk may wait.
class UpdateSession : public std::enable_shared_from_this<UpdateSession> {
public:
    static constexpr std::chrono::minutes feedTimeout{2};
    static constexpr std::chrono::hours packageTimeout{2};
    static constexpr std::chrono::seconds silence{30};

    struct Parts {
        SerialQueue& queue;
        Defaults& defaults;
        PackageInstaller& installer;
        std::function<std::unique_ptr<HttpClient>()> http;  // one for each address
        std::function<double()> random;                     // 0 up to 1
    };
    // Called on the queue; see UpdateDriver::Callbacks.
    struct Outlet {
        std::function<void(const UpdateState&)> state;
        std::function<void(const AvailableUpdate&, bool userInitiated)> found;
        std::function<void(const AvailableUpdate&)> attended;
        std::function<void()> finished;
        std::function<void(bool)> canCheck;
    };

    UpdateSession(Parts sessionParts, UpdateSetup sessionSetup, Outlet sessionOutlet);

    // Removes what earlier runs left, and looks on its own from now on.
    void start(bool automatic);
    void setAutomatic(bool checks);
    void check();
    void install();
    void skip();
    void dismiss();

private:
    template <class State>
    const State* in() const {
        return std::get_if<State>(&state.value);
    }
    // `handler` with what it is called with, unless this is gone by then.
    template <class... Arguments>
    auto later(void (UpdateSession::*handler)(Arguments...)) {
        return [weak = weak_from_this(), handler](Arguments... arguments) {
            if (const auto self = weak.lock()) ((*self).*handler)(arguments...);
        };
    }

    void lookLater(Duration delay);
    void look();
    void loadFeed();
    void feedLoaded(HttpsFetch::Outcome outcome);
    void noneFound(UpdateState outcome);
    void attend();
    void loadPackage();
    void packageLoaded(HttpsFetch::Outcome outcome);
    std::optional<UpdateFailure> failureOfPackage();
    bool isGenuine() const;
    bool isNewer(const std::string& version);
    void handOver();
    void handedOver(PackageInstaller::Outcome outcome);
    void become(UpdateState next);

    const Parts parts;
    const UpdateSetup setup;
    const Outlet outlet;
    UpdateSchedule schedule;
    PackageFolder folder;
    UpdateState state;
    std::optional<AppcastItem> item;  // of the session, from `found` on
    bool automatic = false;
    bool asked = false;     // somebody waits for the answer of the check under way
    bool attended = false;  // somebody has seen that there is an update
    bool checkable = true;
    std::optional<UpdateFailure> lastFailure;  // of its own checks; logged once
    bool noRoom = false;                       // the disk took no more of the package
    Timer lookTimer;
    Bytes feed;                         // as far as it came
    std::uint64_t received = 0;         // of the package
    std::unique_ptr<HttpsFetch> fetch;  // of one of the two
};

}  // namespace orvel
