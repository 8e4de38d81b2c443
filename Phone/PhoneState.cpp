#include "Phone/PhoneState.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <utility>

#include "OrvelKit/Base/JsonForm.h"
#include "Phone/PrivateFiles.h"

namespace orvel {

namespace {

struct AgentList {
    std::vector<phone::KnownAgent> agents;
};

}  // namespace

template <>
struct JsonForm<phone::KnownAgent> {
    static void members(auto& json, auto& agent) {
        json("id", agent.id);
        json("publicKey", agent.publicKey);
        json("name", agent.name);
        json("host", agent.host);
        json("port", agent.port);
        json("lastUsed", agent.lastUsed);
    }
};

template <>
struct JsonForm<AgentList> {
    static void members(auto& json, auto& list) { json("agents", list.agents); }
};

}  // namespace orvel

namespace orvel::phone {

namespace {

// Moves a file out of the way without touching one that was moved there before.
std::string moveAside(const std::string& path) {
    for (int number = 1; number < 1000; ++number) {
        std::string target = path + ".damaged-" + std::to_string(number);
        std::error_code error;
        if (std::filesystem::exists(std::filesystem::symlink_status(target, error))) continue;
        std::filesystem::rename(path, target, error);
        if (!error) return target;
        break;
    }
    return {};
}

}  // namespace

std::string PhoneState::defaultFolder() {
    const char* data = std::getenv("XDG_DATA_HOME");
    if (data && *data == '/') return std::string(data) + "/orvel-phone";
    const char* home = std::getenv("HOME");
    if (home && *home) return std::string(home) + "/.local/share/orvel-phone";
    return ".orvel-phone";
}

PhoneState::PhoneState(std::string stateFolder)
    : folder(std::move(stateFolder)),
      identityPath(folder + "/identity"),
      agentsPath(folder + "/agents.json"),
      ownIdentity(loadIdentity()) {
    readAgents();
}

Identity PhoneState::loadIdentity() {
    if (const auto problem = createPrivateFolder(folder); !problem.empty()) {
        throw Error("The folder for the phone's state, " + folder +
                    ", cannot be created: " + problem + ".");
    }
    FileContent file = readFile(identityPath);
    if (file.status == FileContent::Status::missing) {
        Bytes raw = PrivateKey::generate().raw();
        const WipeAtEnd wiped(raw);
        const CreateOutcome outcome = createFile(identityPath, raw, FileAccess::ownerOnly);
        if (!outcome.created && !outcome.exists) {
            throw Error("The phone's key cannot be stored in " + folder + ": " + outcome.problem +
                        ".");
        }
        if (outcome.created && std::filesystem::exists(agentsPath)) {
            noticed.push_back(
                "The phone's key was gone and a new one was made: every computer has to be paired "
                "again.");
        }
        file = readFile(identityPath);  // another process may have been quicker
    }
    const WipeAtEnd wiped(file.bytes);
    auto key = PrivateKey::fromRaw(file.bytes);
    if (!key) {
        const std::string why = file.status == FileContent::Status::found
                                    ? "it is damaged"
                                    : "it cannot be read (" + file.problem + ")";
        throw Error("The phone's key in " + identityPath + " cannot be used: " + why +
                    ". Restore it, or move it away and pair every computer again.");
    }
    return Identity{*std::move(key)};
}

std::vector<KnownAgent> PhoneState::readAgents() const {
    const FileContent file = readFile(agentsPath);
    if (file.status == FileContent::Status::missing) return {};
    if (file.status == FileContent::Status::unreadable) {
        throw Error("The list of computers in " + agentsPath + " cannot be read: " + file.problem +
                    ".");
    }
    try {
        auto agents = decodeJson<AgentList>(textOf(file.bytes)).agents;
        for (const auto& agent : agents) {
            if (Identity::fingerprint(agent.publicKey) != agent.id) {
                throw JsonError("an ID does not belong to its key");
            }
        }
        return agents;
    } catch (const JsonError& error) {
        const std::string aside = moveAside(agentsPath);
        if (aside.empty()) {
            throw Error("The list of computers in " + agentsPath +
                        " is damaged and cannot be moved away.");
        }
        noticed.push_back("The list of computers was damaged (" + std::string(error.what()) +
                          "); it was kept as " + aside + ", and every computer has to be paired " +
                          "again.");
        return {};
    }
}

std::vector<KnownAgent> PhoneState::agents() const {
    auto agents = readAgents();
    std::stable_sort(agents.begin(), agents.end(),
                     [](const auto& a, const auto& b) { return a.lastUsed > b.lastUsed; });
    return agents;
}

void PhoneState::remember(KnownAgent agent) {
    const FileLock alone(agentsPath + ".lock");
    agent.lastUsed = std::chrono::system_clock::now();
    AgentList list{readAgents()};
    std::erase_if(list.agents, [&](const KnownAgent& other) { return other.id == agent.id; });
    for (auto& other : list.agents) {
        if (other.host == agent.host && other.port == agent.port) other.host.clear();
    }
    list.agents.push_back(std::move(agent));
    const std::string problem =
        replaceFile(agentsPath, bytesOf(encodeJson(list)), FileAccess::ownerOnly);
    if (!problem.empty()) {
        throw Error("The list of computers in " + agentsPath + " cannot be written: " + problem +
                    ".");
    }
}

}  // namespace orvel::phone
