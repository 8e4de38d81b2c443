#pragma once

#include <deque>
#include <memory>
#include <string>

#include "OrvelKit/Wire/FrameParser.h"
#include "Phone/AgentLink.h"

namespace orvel::phone {

// A share in the connection of another process, its LinkHost. What it shows is what this process
// asked for and what the agent says unasked; no picture and no sound. Belongs to one thread, which
// does all the work inside next().
class SharedLink : public AgentLink {
public:
    // Null when nobody listens there.
    static std::unique_ptr<SharedLink> open(const std::string& path);
    ~SharedLink() override;

    void send(const Control& control) override;
    std::optional<Event> next(Duration timeout) override;  // the first is the Welcome
    std::optional<Closed> closed() const override { return ended; }

private:
    struct Stream;
    explicit SharedLink(std::unique_ptr<Stream> opened);
    void receive(ByteView bytes);
    void end(Closed why);

    const std::unique_ptr<Stream> stream;
    FrameParser parser;
    std::deque<Event> waiting;
    Bytes input;
    std::optional<Closed> ended;
};

}  // namespace orvel::phone
