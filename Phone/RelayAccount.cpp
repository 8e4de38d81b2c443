#include "Phone/RelayAccount.h"

#include <cstdio>
#include <utility>

#include "OrvelKit/Secure/Identity.h"
#include "Phone/PrivateFiles.h"

namespace orvel::phone {

// A phone is told its relay on the command line.
class RelayAccount::NoDefaults final : public Defaults {
public:
    std::optional<bool> boolean(const std::string&) override { return {}; }
    std::optional<std::string> string(const std::string&) override { return {}; }
    std::optional<std::vector<std::string>> strings(const std::string&) override { return {}; }
    std::optional<std::map<std::string, std::string>> stringDictionary(
        const std::string&) override {
        return {};
    }
    std::optional<std::map<std::string, Bytes>> dataDictionary(const std::string&) override {
        return {};
    }
    std::optional<std::map<std::string, WallTime>> dateDictionary(const std::string&) override {
        return {};
    }
    bool set(const std::string&, bool) override { return false; }
    bool set(const std::string&, const std::string&) override { return false; }
    bool set(const std::string&, const std::vector<std::string>&) override { return false; }
    bool set(const std::string&, const std::map<std::string, std::string>&) override {
        return false;
    }
    bool set(const std::string&, const std::map<std::string, Bytes>&) override { return false; }
    bool set(const std::string&, const std::map<std::string, WallTime>&) override { return false; }
    bool remove(const std::string&) override { return false; }
};

// One item, in a file of its own.
class RelayAccount::Files final : public SecretStore {
public:
    explicit Files(std::string file) : path(std::move(file)) {}

    Item read(const std::string&, const std::string&) override {
        FileContent content = readFile(path);
        switch (content.status) {
            case FileContent::Status::found:
                return {Item::Status::found, std::move(content.bytes)};
            case FileContent::Status::missing:
                return {Item::Status::missing, {}};
            case FileContent::Status::unreadable:
                break;
        }
        return {Item::Status::unreadable, {}};
    }
    bool add(const std::string&, const std::string&, ByteView data) override {
        return createFile(path, data, FileAccess::ownerOnly).created;
    }
    bool replace(const std::string&, const std::string&, ByteView data) override {
        return replaceFile(path, data, FileAccess::ownerOnly).empty();
    }
    bool remove(const std::string&, const std::string&) override {
        return std::remove(path.c_str()) == 0;
    }

private:
    const std::string path;
};

// The account and the servers keep themselves while they work, and refer to this.
class RelayAccount::Requests final : public HttpClient {
public:
    explicit Requests(SerialQueue& queue) : client(makeSystemHttpClient(queue, {})) {}
    void send(HttpRequest request, Completion completion) override {
        if (client) client->send(std::move(request), std::move(completion));
    }
    void stop() { client.reset(); }

private:
    std::unique_ptr<HttpClient> client;
};

namespace {

std::string pathFor(const std::string& folder, const RelayProject& project) {
    return folder + "/account-" + Identity::fingerprint(bytesOf(project.baseUrl.text()));
}

}  // namespace

RelayAccount::RelayAccount(SerialQueue& queue, RelayProject project, std::string stateFolder)
    : defaults(std::make_unique<NoDefaults>()),
      cloud(*defaults, project),
      files(std::make_unique<Files>(pathFor(stateFolder, project))),
      requests(std::make_unique<Requests>(queue)),
      auth(AnonymousAuth::make(queue, cloud, *requests, *files)),
      provider(IceServerProvider::make(queue, cloud, *requests, auth)) {}

RelayAccount::~RelayAccount() = default;

void RelayAccount::servers(IceServerProvider::ServersHandler handler) {
    provider->servers(std::move(handler));
}

void RelayAccount::stop() {
    requests->stop();
}

}  // namespace orvel::phone
