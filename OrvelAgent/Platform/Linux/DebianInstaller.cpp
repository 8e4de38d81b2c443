#include <cstdio>
#include <filesystem>
#include <utility>

#include "OrvelAgent/Platform/Linux/ChildProcess.h"
#include "OrvelAgent/Platform/Linux/PackageInstaller.h"

namespace orvel {

namespace {

constexpr std::chrono::seconds inspectionLimit{30};
// pkexec(1)
constexpr int dialogDismissed = 126;
constexpr int notAuthorized = 127;  // or there is nobody who could ask

class DebianInstaller final : public PackageInstaller {
public:
    explicit DebianInstaller(SerialQueue& updateQueue) : queue(updateQueue) {}

    std::optional<Identity> identify(const std::string& path) override {
        Identity identity;
        for (const auto& [field, value] : {std::pair{"Package", &identity.name},
                                           {"Version", &identity.version},
                                           {"Architecture", &identity.architecture}}) {
            auto text = ChildProcess::output({"dpkg-deb", "--field", path, field}, inspectionLimit);
            if (!text || text->empty()) return std::nullopt;
            if (text->back() == '\n') text->pop_back();
            *value = *std::move(text);
        }
        return identity;
    }

    std::optional<std::string> installedVersion(const std::string& name) override {
        // Of a package that was removed its settings may be left, and then its version too.
        constexpr std::string_view installed = "installed ";
        const auto text = ChildProcess::output(
            {"dpkg-query", "--show", "--showformat=${db:Status-Status} ${Version}", name},
            inspectionLimit);
        if (!text || !text->starts_with(installed)) return std::nullopt;
        return text->substr(installed.size());
    }

    void install(const std::string& path, std::function<void(Outcome)> completion) override {
        // The agent that asks in a terminal would ask nobody.
        ChildProcess::start(
            queue,
            {"pkexec", "--disable-internal-agent", "/usr/bin/apt-get", "install", "--yes",
             "--quiet", "--no-remove", "-o", "Dpkg::Options::=--force-confold", path},
            [this, path, completion](std::optional<int> status) {
                if (status == 0) return completion(Outcome::installed);
                if (status == dialogDismissed) return completion(Outcome::declined);
                if (status && status != notAuthorized) {
                    std::fprintf(stderr, "orvel: apt ended with status %d\n", *status);
                    return completion(Outcome::failed);
                }
                open(path, completion);
            });
    }

private:
    void open(const std::string& path, const std::function<void(Outcome)>& completion) {
        ChildProcess::start(
            queue, {"xdg-open", path}, [this, path, completion](std::optional<int> status) {
                if (status == 0) return completion(Outcome::opened);
                ChildProcess::start(queue, {"xdg-open", std::filesystem::path(path).parent_path()},
                                    [completion](std::optional<int> shown) {
                                        completion(shown == 0 ? Outcome::opened : Outcome::failed);
                                    });
            });
    }

    SerialQueue& queue;
};

}  // namespace

std::unique_ptr<PackageInstaller> makeDebianInstaller(SerialQueue& queue) {
    return std::make_unique<DebianInstaller>(queue);
}

std::string debianArchitecture() {
#if defined(__x86_64__) && !defined(__ILP32__)
    return "amd64";
#elif defined(__aarch64__)
    return "arm64";
#elif defined(__i386__)
    return "i386";
#elif defined(__arm__) && defined(__ARM_PCS_VFP)
    return "armhf";
#elif defined(__riscv) && __riscv_xlen == 64
    return "riscv64";
#else
    return "";
#endif
}

bool hasDebianPackages() {
    return std::filesystem::exists("/etc/debian_version");  // its derivatives have it, too
}

}  // namespace orvel
