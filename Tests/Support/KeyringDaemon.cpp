#include "Tests/Support/KeyringDaemon.h"

namespace orvel {

KeyringDaemon::KeyringDaemon(const PrivateBus& privateBus) : bus(privateBus) {
    start(true);
}

void KeyringDaemon::start(bool unlocked) {
    daemon.reset();
    const std::string log = folder / "keyring.log";
    auto environment = bus.asSession();
    environment["HOME"] = folder.path;
    environment["XDG_DATA_HOME"] = folder / "data";
    environment["XDG_RUNTIME_DIR"] = folder.path;
    BackgroundProcess::Options options{
        .command = {"gnome-keyring-daemon", "--foreground", "--components=secrets"},
        .environment = environment,
        .outputFile = log};
    if (unlocked) {
        options.command.push_back("--unlock");
        options.input = "password";
    }
    daemon = std::make_unique<BackgroundProcess>(options);
    const bool up =
        eventually([&] { return bus.hasOwner("org.freedesktop.secrets") || !daemon->isRunning(); });
    if (!up || !daemon->isRunning()) throw std::runtime_error("no keyring: " + fileText(log));
}

}  // namespace orvel
