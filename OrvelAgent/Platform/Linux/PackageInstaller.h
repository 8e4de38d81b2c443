#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "OrvelKit/Base/SerialQueue.h"

namespace orvel {

// The system's way to install a package file. Belongs to the queue of the updates.
class PackageInstaller {
public:
    // What a package says of itself.
    struct Identity {
        std::string name, version, architecture;
    };
    enum class Outcome {
        installed,
        opened,    // another program has it, or shows the folder where it lies
        declined,  // the user did not want to authenticate
        failed
    };

    virtual ~PackageInstaller() = default;
    // nullopt: it is no package. Waits for the disk.
    virtual std::optional<Identity> identify(const std::string& path) = 0;
    // The version of the package of this name that is installed now; nullopt: none is. Waits for
    // the disk.
    virtual std::optional<std::string> installedVersion(const std::string& name) = 0;
    // Only of a package that was verified just now. Asks the user as the system does, and may take
    // as long as that.
    virtual void install(const std::string& path, std::function<void(Outcome)> completion) = 0;
};

// Debian's: apt through polkit, which asks for whatever the system demands of who installs
// programs; where polkit cannot ask, the desktop's own program for packages; where there is none,
// the desktop's view of the folder. Nothing else is run with other rights than the user's.
// Found in PATH: pkexec, dpkg-deb, dpkg-query, xdg-open. It outlives what it is asked for, on that
// queue.
std::unique_ptr<PackageInstaller> makeDebianInstaller(SerialQueue& queue);

// "amd64": as Debian names what this program was built for; "" when it has no name for it.
std::string debianArchitecture();
// There is something to install such packages with.
bool hasDebianPackages();

}  // namespace orvel
