#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "OrvelKit/Base/Bytes.h"
#include "OrvelKit/Base/SerialQueue.h"
#include "OrvelKit/Base/UniqueFunction.h"
#include "OrvelKit/Relay/Network.h"
#include "OrvelKit/Relay/Url.h"

namespace orvel {

struct HttpRequest {
    std::string method = "POST";
    Url url;
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;
    Duration timeout{};  // for all of it: from resolving the name to the response's last byte

    static constexpr std::uint64_t usualMaxBody = 256 << 10;
    std::uint64_t maxBody = usualMaxBody;  // of the response, in bytes; a longer one is a failure
    Duration silence{};                    // the longest wait for the next byte; 0: only `timeout`
    // Takes the body of a response of status 200 piece by piece, on the client's queue, and leaves
    // none in the response; any other status has its own there, up to `usualMaxBody`. False: no
    // more of it is wanted, and there is no response.
    std::function<bool(ByteView piece)> onBody = nullptr;
};

struct HttpResponse {
    int status = 0;
    std::string body;
    std::string location = {};  // where a redirection leads; as written, "" when it does not say
};

// Requests of an HTTP/1.1 client, each on a connection of its own. Redirections are not followed;
// no cookies, no caches.
class HttpClient {
public:
    // nullopt: no response came, or none that could be read to its end.
    using Completion = UniqueFunction<void(std::optional<HttpResponse>)>;

    virtual ~HttpClient() = default;
    // Any thread; completed on the client's queue, once, never inside the call. What is under way
    // when the client is destroyed is dropped. A header with a control character is a failure.
    virtual void send(HttpRequest request, Completion completion) = 0;
};

// Sockets of the system. "http" and "https" addresses; requests to others fail.
std::unique_ptr<HttpClient> makeSystemHttpClient(SerialQueue& queue, Network network);

}  // namespace orvel
