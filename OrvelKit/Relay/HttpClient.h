#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

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
};

struct HttpResponse {
    int status = 0;
    std::string body;
};

// Requests of an HTTP/1.1 client, each on a connection of its own. No redirections, cookies or
// caches.
class HttpClient {
public:
    static constexpr std::size_t maxBody = 256 << 10;  // of a response; a longer one is a failure

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
