#include "Tests/Support/PrivateBus.h"

#include <fstream>

namespace orvel {

PrivateBus::PrivateBus() {
    const std::string socket = folder / "bus";
    busAddress = "unix:path=" + socket;
    std::ofstream(folder / "bus.conf")
        << "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
           " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
           "<busconfig>\n"
           "  <type>session</type>\n"
           "  <listen>"
        << busAddress
        << "</listen>\n"
           "  <auth>EXTERNAL</auth>\n"
           "  <policy context=\"default\">\n"
           "    <allow send_destination=\"*\" eavesdrop=\"true\"/>\n"
           "    <allow eavesdrop=\"true\"/>\n"
           "    <allow own=\"*\"/>\n"
           "  </policy>\n"
           "</busconfig>\n";
    start();
}

void PrivateBus::start() {
    const std::string log = folder / "bus.log";
    daemon.reset();
    std::filesystem::remove(log);
    std::filesystem::remove(folder / "bus");
    daemon = std::make_unique<BackgroundProcess>(BackgroundProcess::Options{
        .command = {"dbus-daemon", "--nofork", "--nosyslog", "--print-address",
                    "--config-file=" + (folder / "bus.conf")},
        .outputFile = log});
    const bool up = eventually([&] {
        return fileText(log).find(busAddress) != std::string::npos || !daemon->isRunning();
    });
    if (!up || !daemon->isRunning()) {
        throw std::runtime_error("no message bus: " + fileText(log));
    }
}

std::optional<std::string> PrivateBus::call(const std::string& service, const std::string& path,
                                            const std::string& method,
                                            const std::vector<std::string>& arguments) const {
    const TemporaryFolder output;
    std::vector<std::string> command = {
        "dbus-send", "--bus=" + busAddress, "--dest=" + service, "--print-reply=literal", path,
        method};
    command.insert(command.end(), arguments.begin(), arguments.end());
    BackgroundProcess sender({.command = command, .outputFile = output / "answer"});
    if (sender.wait() != 0) return std::nullopt;
    return fileText(output / "answer");
}

bool PrivateBus::hasOwner(const std::string& service) const {
    return call("org.freedesktop.DBus", "/org/freedesktop/DBus",
                "org.freedesktop.DBus.GetNameOwner", {"string:" + service})
        .has_value();
}

std::map<std::string, std::string> PrivateBus::asSession() const {
    return {{"DBUS_SESSION_BUS_ADDRESS", busAddress}};
}

std::map<std::string, std::string> PrivateBus::asSystem() const {
    return {{"DBUS_SYSTEM_BUS_ADDRESS", busAddress}};
}

}  // namespace orvel
