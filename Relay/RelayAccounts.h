#pragma once

#include <chrono>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OrvelKit/Base/SerialQueue.h"

namespace orvel {

// Anonymous users as the hosted service has them: a sign-up gives a token that ends and one that
// renews it, once. They live as long as the relay runs; a client whose user is gone signs up again.
// Belongs to the queue, whose clock it goes by.
class RelayAccounts {
public:
    struct Options {
        std::chrono::seconds tokenLife{3600};
        std::size_t maxUsers = 10'000;       // the oldest goes
        std::size_t signUpsPerHour = 30;     // from one address
        std::chrono::seconds reuseTime{10};  // for an older refresh token
    };
    struct Reply {
        int status;
        std::string body;  // JSON
    };

    RelayAccounts(SerialQueue& queue, Options options);

    Reply signUp(const std::string& address, std::string_view body);
    Reply refresh(std::string_view body);

    // The user of an access token that has not ended.
    std::optional<std::string> userOf(const std::string& accessToken) const;

private:
    struct User {
        std::string access, refresh, previousRefresh;
        WallTime accessEnds;
        MonotonicTime refreshed;
        std::vector<std::string> spent;  // older refresh tokens, the last few
    };
    Reply grant(const std::string& id, User& user);
    void rotate(const std::string& id, User& user);
    void forget(const std::string& id);

    SerialQueue& queue;
    const Options options;
    std::map<std::string, User> users;                         // by their IDs
    std::deque<std::string> oldest;                            // IDs as they came
    std::map<std::string, std::string> byAccess;               // token to ID
    std::map<std::string, std::string> byRefresh;              // current, previous and spent ones
    std::map<std::string, std::deque<MonotonicTime>> signUps;  // of the last hour, by address
};

}  // namespace orvel
