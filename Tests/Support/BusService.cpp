#include "Tests/Support/BusService.h"

namespace orvel {

BusService::BusService(const PrivateBus& privateBus, const std::string& templateName,
                       const std::string& service)
    : bus(privateBus), serviceName(service) {
    start({"--template", templateName});
}

BusService::BusService(const PrivateBus& privateBus, const std::string& service,
                       const std::string& objectPath, const std::string& objectInterface)
    : bus(privateBus), serviceName(service), path(objectPath), interface(objectInterface) {
    start({serviceName, path, interface});
}

void BusService::start(std::vector<std::string> arguments) {
    // The system's own interpreter is the one that has the package.
    std::vector<std::string> command = {"/usr/bin/python3", "-m",        "dbusmock",
                                        "--session",        "--logfile", log()};
    command.insert(command.end(), arguments.begin(), arguments.end());
    mock = std::make_unique<BackgroundProcess>(BackgroundProcess::Options{
        .command = command, .environment = bus.asSession(), .outputFile = folder / "output"});
    const bool up = eventually([&] { return bus.hasOwner(serviceName) || !mock->isRunning(); });
    if (!up || !mock->isRunning()) {
        throw std::runtime_error("no " + serviceName + ": " + fileText(folder / "output"));
    }
}

void BusService::addMethod(const std::string& name, const std::string& signature,
                           const std::string& answers, const std::string& code) {
    if (!bus.call(serviceName, path, "org.freedesktop.DBus.Mock.AddMethod",
                  {"string:" + interface, "string:" + name, "string:" + signature,
                   "string:" + answers, "string:" + code})) {
        throw std::runtime_error("no method " + name);
    }
}

}  // namespace orvel
