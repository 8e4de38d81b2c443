#include "Tests/Support/AvahiDaemon.h"

#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

namespace orvel {

namespace {

bool writeText(const char* path, const char* text) {
    const int file = open(path, O_WRONLY | O_CLOEXEC);
    const auto size = static_cast<ssize_t>(strlen(text));
    const bool written = file >= 0 && write(file, text, strlen(text)) == size;
    close(file);
    return written;
}

bool bringLoopbackUp() {
    const int any = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq request = {};
    strcpy(request.ifr_name, "lo");
    request.ifr_flags = IFF_UP | IFF_RUNNING | IFF_LOOPBACK;
    const bool up = any >= 0 && ioctl(any, SIOCSIFFLAGS, &request) == 0;
    close(any);
    return up;
}

// What the child needs in namespaces of its own, made before it is one.
struct OwnNamespaces {
    std::string userMap, groupMap, users, groups;

    // The daemon keeps its process number and a socket in fixed places: those must be its own, too.
    bool enter() const {
        constexpr int wanted = CLONE_NEWNS | CLONE_NEWNET;
        const bool isRoot = unshare(wanted) == 0;
        if (!isRoot && !becomeRootOfOwn(wanted)) return false;
        // Before any other mount: none may show outside.
        return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
               (isRoot || becomeTheDaemonsUser()) &&
               mount("tmpfs", "/run", "tmpfs", 0, "mode=1777") == 0 && bringLoopbackUp();
    }

private:
    bool becomeRootOfOwn(int wanted) const {
        if (unshare(CLONE_NEWUSER | wanted) != 0) return false;
        writeText("/proc/self/setgroups", "deny");
        return writeText("/proc/self/uid_map", userMap.c_str()) &&
               writeText("/proc/self/gid_map", groupMap.c_str());
    }
    // The daemon gives its folder to the user "avahi": here that is ourselves.
    bool becomeTheDaemonsUser() const {
        return mount(users.c_str(), "/etc/passwd", nullptr, MS_BIND, nullptr) == 0 &&
               mount(groups.c_str(), "/etc/group", nullptr, MS_BIND, nullptr) == 0;
    }
};

// As avahi-browse --parsable writes names: \DDD for a byte, \c for a character.
std::string unescaped(const std::string& text) {
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 3 < text.size() && isdigit(text[i + 1])) {
            plain += static_cast<char>(std::stoi(text.substr(i + 1, 3)));
            i += 3;
        } else if (text[i] == '\\' && i + 1 < text.size()) {
            plain += text[++i];
        } else {
            plain += text[i];
        }
    }
    return plain;
}

}  // namespace

AvahiDaemon::AvahiDaemon(const PrivateBus& privateBus) : bus(privateBus) {
    std::ofstream(folder / "avahi.conf") << "[server]\n"
                                            "host-name=test\n"
                                            "use-ipv6=no\n"
                                            "allow-interfaces=lo\n"
                                            "[wide-area]\n"
                                            "enable-wide-area=no\n"
                                            "[publish]\n"
                                            "publish-hinfo=no\n"
                                            "publish-workstation=no\n";
    start();
}

void AvahiDaemon::start() {
    const std::string log = folder / "avahi.log";
    daemon.reset();
    std::filesystem::remove(log);
    const std::string user = std::to_string(getuid()), group = std::to_string(getgid());
    const OwnNamespaces namespaces{user + ' ' + user + " 1", group + ' ' + group + " 1",
                                   folder / "passwd", folder / "group"};
    std::ofstream(namespaces.users) << "avahi:x:" << user << ':' << group << "::/:/bin/false\n";
    std::ofstream(namespaces.groups) << "avahi:x:" << group << ":\n";
    daemon = std::make_unique<BackgroundProcess>(
        BackgroundProcess::Options{.command = {"avahi-daemon", "--no-drop-root", "--no-chroot",
                                               "--no-rlimits", "--file", folder / "avahi.conf"},
                                   .environment = bus.asSystem(),
                                   .outputFile = log,
                                   .prepare = [&] { return namespaces.enter(); }});
    const bool up = eventually([&] {
        return fileText(log).find("Server startup complete") != std::string::npos ||
               !daemon->isRunning();
    });
    if (!up || !daemon->isRunning()) {
        throw std::runtime_error("no Avahi daemon: " + fileText(log));
    }
}

std::vector<AvahiDaemon::Service> AvahiDaemon::browse(const std::string& type) const {
    const TemporaryFolder output;
    BackgroundProcess browser({.command = {"avahi-browse", "--terminate", "--resolve", "--parsable",
                                           "--no-db-lookup", type},
                               .environment = bus.asSystem(),
                               .outputFile = output / "lines"});
    browser.wait();
    std::vector<Service> services;
    std::istringstream lines(fileText(output / "lines"));
    for (std::string line; std::getline(lines, line);) {
        // =;interface;protocol;name;type;domain;host;address;port;text
        std::vector<std::string> fields;
        std::istringstream parts(line);
        for (std::string part; std::getline(parts, part, ';');)
            fields.push_back(part);
        if (fields.size() < 9 || fields[0] != "=") continue;
        services.push_back({unescaped(fields[3]), fields[4],
                            static_cast<std::uint16_t>(std::stoi(fields[8])),
                            fields.size() > 9 ? fields[9] : ""});
    }
    std::sort(services.begin(), services.end(),
              [](const auto& a, const auto& b) { return a.name < b.name; });
    return services;
}

}  // namespace orvel
