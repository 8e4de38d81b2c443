#include <sys/utsname.h>

#include <random>

#include "OrvelAgent/Platform/Linux/FeedUpdateDriver.h"
#include "OrvelAgent/Platform/Linux/PackageInstaller.h"
#include "OrvelAgent/Platform/NoUpdateDriver.h"
#include "OrvelAgent/Platform/Posix/StatePlaces.h"
#include "OrvelAgent/Platform/SocketOptions.h"
#include "OrvelAgent/Update/UpdateSource.h"

namespace orvel {

namespace {

constexpr const char* packageName = "orvel-agent";
constexpr const char* packageType = "application/vnd.debian.binary-package";  // registered by IANA

// Made before the driver and gone after it: the queue first, then what its tasks use.
struct UpdateQueue {
    std::unique_ptr<PackageInstaller> installer;
    SerialQueue queue{"orvel.updates"};

    UpdateQueue() { installer = makeDebianInstaller(queue); }
};

double randomPart() {
    static thread_local std::mt19937 generator{std::random_device{}()};
    return std::uniform_real_distribution<double>(0, 1)(generator);
}

// The kernel's: the one version that all distributions have. What they differ in is the
// dependencies of their packages.
std::string systemVersion() {
    struct utsname names;
    return uname(&names) == 0 ? names.release : "";
}

class LinuxUpdateDriver final : private UpdateQueue, public FeedUpdateDriver {
public:
    LinuxUpdateDriver(SerialQueue& mainQueue, Defaults& defaults, const UpdateSetup& setup)
        : FeedUpdateDriver(
              {mainQueue, queue, defaults, *installer,
               [&updates = queue] {
                   return makeSystemHttpClient(updates, Network{prepareConnectedSocket, {}});
               },
               randomPart},
              setup) {}
};

}  // namespace

std::unique_ptr<UpdateDriver> UpdateDriver::create(SerialQueue& mainQueue, Defaults& defaults,
                                                   HostInfo& host, const StateLocation& location) {
    const auto source = UpdateSource::compiledIn();
    const auto version = host.shortVersion();
    if (!source || !version || !hasDebianPackages() || debianArchitecture().empty()) {
        return std::make_unique<NoUpdateDriver>();
    }
    // Of a build that was not installed as a package.
    const auto whole = *version + "-" + host.buildVersion().value_or("0");
    return std::make_unique<LinuxUpdateDriver>(
        mainQueue, defaults,
        UpdateSetup{source->feed,
                    source->publicKey,
                    whole,
                    packageName,
                    {"linux", packageType, debianArchitecture(), systemVersion()},
                    StatePlaces::of(location).cacheFolder + "/updates",
                    // Of several agents of one computer one is enough.
                    !location.folder});
}

}  // namespace orvel
