#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "OrvelKit/Base/Bytes.h"
#include "OrvelKit/Base/SerialQueue.h"
#include "OrvelKit/Relay/HttpClient.h"

namespace orvel {

// Loads what lies at an https address, which may redirect to other https addresses and nowhere
// else. Belongs to the client's queue; destroying it gives up, without a completion.
class HttpsFetch {
public:
    static constexpr int maxRedirects = 5;

    enum class Outcome {
        whole,
        stopped,  // the sink wanted no more
        tooLong,  // longer than `limit`; the sink was not given more
        failed    // no connection, no trust, a redirection to elsewhere, no success, cut short
    };
    struct Request {
        Url url;
        std::uint64_t limit;  // bytes
        Duration timeout;     // for all of it
        Duration silence;     // the longest wait for a byte
        // Takes what comes; false: no more.
        std::function<bool(ByteView)> sink;
        std::function<void(Outcome)> completion;  // once, never inside the constructor
    };

    // `client` is for this alone.
    HttpsFetch(SerialQueue& queue, std::unique_ptr<HttpClient> client, Request request);
    ~HttpsFetch();
    HttpsFetch(const HttpsFetch&) = delete;
    HttpsFetch& operator=(const HttpsFetch&) = delete;

private:
    struct State;
    const std::shared_ptr<State> state;
};

}  // namespace orvel
