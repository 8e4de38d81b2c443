#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "OrvelKit/Base/Json.h"
#include "OrvelKit/Base/SerialQueue.h"

namespace orvel {

// The topics of the relay and who is on them: Phoenix channels with broadcasts as the hosted
// service has them. Public channels only; nothing is kept. Belongs to the queue.
class RealtimeHub {
public:
    // How messages are written: as objects (1.0.0), or as arrays (2.0.0), where broadcasts come to
    // us in a binary form.
    enum class Serializer { objects, arrays };

    struct Options {
        std::size_t maxPayload = 256 << 10;            // of a broadcast; a longer one is dropped
        std::size_t maxChannels = 100;                 // of one client
        double messagesPerSecond = 100;                // of one client, averaged over a minute
        std::chrono::milliseconds refusalDelay{5000};  // so that a refused client does not hammer
    };

    // One connection.
    class Client {
    public:
        virtual ~Client() = default;
        virtual void send(const std::string& text) = 0;
    };

    // `acceptsToken` judges the token of a join, where one is given.
    RealtimeHub(SerialQueue& queue, Options options,
                std::function<bool(const std::string&)> acceptsToken);

    void came(const std::shared_ptr<Client>& client, Serializer serializer);
    // What is no message is ignored.
    void received(Client& client, const std::string& message, bool isBinary);
    void left(Client& client);

private:
    struct Channel {
        std::optional<std::string> joinRef;
        bool hearsItself = false, acknowledged = false;
    };
    struct Member {
        std::weak_ptr<Client> client;
        Serializer serializer;
        std::map<std::string, Channel> channels;  // by topic
        double allowance;                         // messages that may come at once
        MonotonicTime counted;                    // when that was so
    };
    struct Incoming {
        std::string topic, event;
        std::optional<std::string> ref, joinRef;
        JsonValue payload;
    };
    static std::optional<Incoming> read(const JsonValue& root, Serializer serializer);
    void handle(Client& client, Member& member, const Incoming& message);
    void join(Client& client, Member& member, const Incoming& message);
    void leave(Client& client, Member& member, const Incoming& message);
    void broadcast(Client& client, Member& member, const Incoming& message);
    void refuse(Member& member, const Incoming& message, const std::string& reason);
    void closeChannel(Client& client, Member& member, const std::string& topic);
    bool mayContinue(Member& member);

    SerialQueue& queue;
    const Options options;
    const std::function<bool(const std::string&)> acceptsToken;
    std::map<Client*, Member> members;
    std::map<std::string, std::set<Client*>> topics;
    std::map<std::uint64_t, Timer> refusals;  // under way
    std::uint64_t refusalNumber = 0;
};

}  // namespace orvel
