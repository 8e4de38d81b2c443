#pragma once

#include <memory>
#include <string>
#include <vector>

#include "OrvelKit/Relay/HttpClient.h"

namespace orvel {

// Requests without a network, for one test: they wait for the test's answer. Used on the test's
// thread.
class FakeHttpClient : public HttpClient {
public:
    struct Call {
        HttpRequest request;
        Completion completion;
    };
    std::vector<Call> calls;

    void send(HttpRequest request, Completion completion) override {
        calls.push_back({std::move(request), std::move(completion)});
    }

    // "POST http://… 8 s", the headers a line each, the body.
    static std::string summary(const HttpRequest& request) {
        using std::chrono::duration_cast, std::chrono::seconds;
        std::string text = request.method + " " + request.url.text() + " " +
                           std::to_string(duration_cast<seconds>(request.timeout).count()) + " s\n";
        for (const auto& [name, value] : request.headers)
            text.append(name + ": ").append(value + "\n");
        return text + request.body;
    }
};

}  // namespace orvel
