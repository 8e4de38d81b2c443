#include "Tests/Support/AccessibleDesktop.h"

#include <stdexcept>

namespace orvel {

namespace {

constexpr const char* service = "org.a11y.Bus";
constexpr const char* path = "/org/a11y/bus";

}  // namespace

AccessibleDesktop::AccessibleDesktop() {
    windowManager = std::make_unique<BackgroundProcess>(BackgroundProcess::Options{
        .command = {"openbox"}, .environment = environment(), .outputFile = home / "openbox.log"});
    startAccessibility();
}

AccessibleDesktop::~AccessibleDesktop() {
    stopAccessibility();
}

std::map<std::string, std::string> AccessibleDesktop::environment() const {
    auto all = session.asSession();
    all["DISPLAY"] = display();
    all["HOME"] = all["XDG_RUNTIME_DIR"] = home.path.string();
    all["XDG_CONFIG_HOME"] = home / "config";
    all["XDG_CACHE_HOME"] = home / "cache";
    all["GSETTINGS_BACKEND"] = "memory";
    all["GDK_BACKEND"] = "x11";
    all["QT_QPA_PLATFORM"] = "xcb";
    return all;
}

void AccessibleDesktop::startAccessibility() {
    accessibility = std::make_unique<BackgroundProcess>(BackgroundProcess::Options{
        .command = {"/usr/libexec/at-spi-bus-launcher", "--launch-immediately"},
        .environment = environment(),
        .outputFile = home / "accessibility.log"});
    const bool up =
        eventually([&] { return session.hasOwner(service) || !accessibility->isRunning(); });
    if (!up || !accessibility->isRunning()) {
        throw std::runtime_error("no accessibility: " + fileText(home / "accessibility.log"));
    }
}

void AccessibleDesktop::stopAccessibility() {
    accessibility.reset();
}

bool AccessibleDesktop::isAccessibilityOn() const {
    const auto answer = session.call(service, path, "org.freedesktop.DBus.Properties.Get",
                                     {"string:org.a11y.Status", "string:IsEnabled"});
    return answer && answer->find("true") != std::string::npos;
}

void AccessibleDesktop::switchAccessibility(bool isOn) {
    session.call(service, path, "org.freedesktop.DBus.Properties.Set",
                 {"string:org.a11y.Status", "string:IsEnabled",
                  std::string("variant:boolean:") + (isOn ? "true" : "false")});
}

std::string AccessibleDesktop::send(std::vector<std::string> arguments) const {
    auto address = session.call(service, path, "org.a11y.Bus.GetAddress").value_or("");
    address.erase(0, address.find_first_not_of(" \n"));
    address.erase(address.find_last_not_of(" \n") + 1);
    arguments.insert(arguments.begin(), {"dbus-send", "--bus=" + address});
    const TemporaryFolder output;
    BackgroundProcess sender({.command = arguments, .outputFile = output / "answer"});
    return sender.wait() == 0 ? fileText(output / "answer") : "";
}

int AccessibleDesktop::applications() const {
    const auto answer =
        send({"--dest=org.a11y.atspi.Registry", "--print-reply=literal",
              "/org/a11y/atspi/accessible/root", "org.freedesktop.DBus.Properties.Get",
              "string:org.a11y.atspi.Accessible", "string:ChildCount"});
    const auto number = answer.find("int32 ");
    return number == std::string::npos ? 0 : std::atoi(answer.c_str() + number + 6);
}

std::string AccessibleDesktop::listeners() const {
    return send({"--dest=org.a11y.atspi.Registry", "--print-reply=literal",
                 "/org/a11y/atspi/registry", "org.a11y.atspi.Registry.GetRegisteredEvents"});
}

void AccessibleDesktop::signal(const std::string& object, const std::string& name,
                               const std::vector<std::string>& arguments) const {
    std::vector<std::string> all = {"--type=signal", object, name};
    all.insert(all.end(), arguments.begin(), arguments.end());
    send(all);
}

}  // namespace orvel
