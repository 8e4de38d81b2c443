#include "Relay/RelayAccounts.h"

#include <openssl/rand.h>

#include <algorithm>
#include <cstdlib>

#include "OrvelKit/Base/Bytes.h"
#include "OrvelKit/Base/Json.h"

namespace orvel {

namespace {

using Reply = RelayAccounts::Reply;

constexpr std::size_t maxSpent = 8, maxAddresses = 10'000;

std::string random(std::size_t length) {
    static constexpr char digits[] = "0123456789abcdef";
    Bytes bytes(length);
    if (RAND_bytes(bytes.data(), static_cast<int>(length)) != 1) std::abort();
    std::string text;
    for (const auto byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

std::string randomId() {  // RFC 4122, version 4
    auto id = random(16);
    id[12] = '4';
    id[16] = "89ab"[id[16] % 4];
    for (const std::size_t at : {20, 16, 12, 8})
        id.insert(at, "-");
    return id;
}

Reply error(int status, const char* code, const char* message) {
    JsonWriter json;
    json.beginObject();
    json.key("code");
    json.integer(status);
    json.key("error_code");
    json.string(code);
    json.key("msg");
    json.string(message);
    json.endObject();
    return {status, json.take()};
}

bool isObject(std::string_view text) {
    try {
        return JsonDocument(text).root().isObject();
    } catch (const JsonError&) {
        return false;
    }
}

std::optional<std::string> refreshTokenIn(std::string_view text) {
    try {
        const JsonDocument document(text);
        const auto member = document.root().member("refresh_token");
        const auto token = member ? member->string() : std::nullopt;
        if (token) return std::string(*token);
    } catch (const JsonError&) {
        // None.
    }
    return std::nullopt;
}

}  // namespace

RelayAccounts::RelayAccounts(SerialQueue& accountsQueue, Options accountOptions)
    : queue(accountsQueue), options(accountOptions) {}

Reply RelayAccounts::signUp(const std::string& address, std::string_view body) {
    if (!isObject(body)) return error(400, "bad_json", "Could not parse request body as JSON");
    if (signUps.size() >= maxAddresses && !signUps.count(address)) signUps.clear();
    auto& recent = signUps[address];
    while (!recent.empty() && queue.now() - recent.front() >= std::chrono::hours(1))
        recent.pop_front();
    if (recent.size() >= options.signUpsPerHour) {
        return error(429, "over_request_rate_limit", "Request rate limit reached");
    }
    recent.push_back(queue.now());

    if (users.size() >= options.maxUsers) {
        const auto id = oldest.front();  // forget() takes it out
        forget(id);
    }
    const auto id = randomId();
    oldest.push_back(id);
    User& user = users[id];
    rotate(id, user);
    return grant(id, user);
}

Reply RelayAccounts::refresh(std::string_view body) {
    const auto token = refreshTokenIn(body);
    if (!token) return error(400, "validation_failed", "refresh_token required");
    const auto found = byRefresh.find(*token);
    if (found == byRefresh.end()) {
        return error(400, "refresh_token_not_found",
                     "Invalid Refresh Token: Refresh Token Not Found");
    }
    const auto id = found->second;
    User& user = users.at(id);
    // The answer that brought the predecessor's successor may have been lost: it comes again.
    const bool forgiven =
        *token == user.previousRefresh || queue.now() - user.refreshed < options.reuseTime;
    if (*token == user.refresh) {
        rotate(id, user);
    } else if (!forgiven) {
        forget(id);  // somebody else has its tokens
        return error(400, "refresh_token_already_used", "Invalid Refresh Token: Already Used");
    }
    return grant(id, user);
}

void RelayAccounts::rotate(const std::string& id, User& user) {
    if (!user.previousRefresh.empty()) user.spent.push_back(user.previousRefresh);
    if (user.spent.size() > maxSpent) {
        byRefresh.erase(user.spent.front());
        user.spent.erase(user.spent.begin());
    }
    user.previousRefresh = user.refresh;
    user.refresh = random(12);
    user.refreshed = queue.now();
    byRefresh[user.refresh] = id;
}

Reply RelayAccounts::grant(const std::string& id, User& user) {
    byAccess.erase(user.access);
    user.access = random(32);
    user.accessEnds = queue.wallTime() + options.tokenLife;
    byAccess[user.access] = id;

    JsonWriter json;
    json.beginObject();
    json.key("access_token");
    json.string(user.access);
    json.key("token_type");
    json.string("bearer");
    json.key("expires_in");
    json.integer(options.tokenLife.count());
    json.key("expires_at");
    json.integer(
        std::chrono::duration_cast<std::chrono::seconds>(user.accessEnds.time_since_epoch())
            .count());
    json.key("refresh_token");
    json.string(user.refresh);
    json.key("user");
    json.beginObject();
    for (const auto& [name, value] : std::map<std::string, std::string>{
             {"id", id}, {"aud", "authenticated"}, {"role", "authenticated"}, {"email", ""}}) {
        json.key(name);
        json.string(value);
    }
    json.key("is_anonymous");
    json.boolean(true);
    json.endObject();
    json.endObject();
    return {200, json.take()};
}

void RelayAccounts::forget(const std::string& id) {
    const auto node = users.extract(id);
    const User& user = node.mapped();
    byAccess.erase(user.access);
    byRefresh.erase(user.refresh);
    byRefresh.erase(user.previousRefresh);
    for (const auto& token : user.spent)
        byRefresh.erase(token);
    oldest.erase(std::find(oldest.begin(), oldest.end(), id));
}

std::optional<std::string> RelayAccounts::userOf(const std::string& accessToken) const {
    const auto found = byAccess.find(accessToken);
    if (found == byAccess.end() || queue.wallTime() >= users.at(found->second).accessEnds) {
        return std::nullopt;
    }
    return found->second;
}

}  // namespace orvel
