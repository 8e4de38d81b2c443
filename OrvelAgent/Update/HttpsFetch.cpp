#include "OrvelAgent/Update/HttpsFetch.h"

#include <limits>
#include <utility>

namespace orvel {

struct HttpsFetch::State : std::enable_shared_from_this<State> {
    State(SerialQueue& fetchQueue, std::unique_ptr<HttpClient> fetchClient, Request fetchRequest)
        : queue(fetchQueue),
          client(std::move(fetchClient)),
          request(std::move(fetchRequest)),
          end(queue.now() + request.timeout) {}

    SerialQueue& queue;
    std::unique_ptr<HttpClient> client;  // null: over
    Request request;
    const MonotonicTime end;
    int redirects = 0;
    std::uint64_t received = 0;
    std::optional<Outcome> early;  // why the sink was given no more

    void get(const Url& url) {
        if (url.scheme() != "https") {
            queue.post([weak = weak_from_this()] {
                if (const auto self = weak.lock()) self->finish(Outcome::failed);
            });
            return;
        }
        HttpRequest get{"GET", url, {}, {}, end - queue.now()};
        // take() counts; the client alone could not tell too long from broken.
        get.maxBody = std::numeric_limits<std::uint64_t>::max();
        get.silence = request.silence;
        get.onBody = [weak = weak_from_this()](ByteView piece) {
            const auto self = weak.lock();
            return self && self->take(piece);
        };
        client->send(std::move(get), [weak = weak_from_this(), url](auto response) {
            if (const auto self = weak.lock()) self->answered(url, response);
        });
    }

    bool take(ByteView piece) {
        if (!client) return false;
        if (piece.size() > request.limit - received) {
            early = Outcome::tooLong;
        } else {
            received += piece.size();
            if (!request.sink(piece)) early = Outcome::stopped;
        }
        return !early;
    }

    void answered(const Url& url, const std::optional<HttpResponse>& response) {
        if (!client) return;
        if (early) return finish(*early);
        if (!response) return finish(Outcome::failed);
        if (response->status == 200) return finish(Outcome::whole);
        const bool leadsElsewhere = response->status == 301 || response->status == 302 ||
                                    response->status == 303 || response->status == 307 ||
                                    response->status == 308;
        const auto next = url.resolved(response->location);
        if (!leadsElsewhere || response->location.empty() || !next || ++redirects > maxRedirects ||
            next->scheme() != "https") {
            return finish(Outcome::failed);
        }
        get(*next);
    }

    void finish(Outcome outcome) {
        if (!std::exchange(client, nullptr)) return;
        request.completion(outcome);  // may be the end of this
    }
};

HttpsFetch::HttpsFetch(SerialQueue& queue, std::unique_ptr<HttpClient> client, Request request)
    : state(std::make_shared<State>(queue, std::move(client), std::move(request))) {
    state->get(state->request.url);
}

HttpsFetch::~HttpsFetch() {
    state->client = nullptr;
}

}  // namespace orvel
