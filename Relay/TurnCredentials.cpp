#include "Relay/TurnCredentials.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <cstdlib>

#include "OrvelKit/Base/Bytes.h"
#include "OrvelKit/Base/Json.h"

namespace orvel {

namespace {

std::int64_t secondsSince1970(WallTime time) {
    return std::chrono::duration_cast<std::chrono::seconds>(time.time_since_epoch()).count();
}

}  // namespace

TurnCredentials TurnCredentials::make(const std::string& secret, const std::string& user,
                                      WallTime until) {
    const auto username = std::to_string(secondsSince1970(until)) + ":" + user;
    const auto text = bytesOf(username);
    Bytes mac(EVP_MAX_MD_SIZE);
    unsigned length = 0;
    if (!HMAC(EVP_sha1(), secret.data(), static_cast<int>(secret.size()), text.data(), text.size(),
              mac.data(), &length)) {
        std::abort();
    }
    mac.resize(length);
    return {username, base64(mac)};
}

std::string IceFunction::answer(const std::string& user, WallTime now) const {
    JsonWriter json;
    json.beginObject();
    json.key("iceServers");
    json.beginArray();
    if (!turnUrls.empty() && !turnSecret.empty()) {
        const auto credentials = TurnCredentials::make(turnSecret, user, now + life);
        json.beginObject();
        json.key("urls");
        json.beginArray();
        for (const auto& url : turnUrls)
            json.string(url);
        json.endArray();
        json.key("username");
        json.string(credentials.username);
        json.key("credential");
        json.string(credentials.credential);
        json.endObject();
    }
    json.endArray();
    json.key("ttl");
    json.integer(life.count());
    json.endObject();
    return json.take();
}

}  // namespace orvel
