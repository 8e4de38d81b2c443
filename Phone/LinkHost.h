#pragma once

#include <functional>
#include <memory>
#include <string>

#include "OrvelKit/Base/SerialQueue.h"
#include "Phone/AgentLink.h"

namespace orvel::phone {

// Lets other commands of this user, in processes of their own, talk to an agent over the connection
// that this process has: an agent obeys one connection of a phone at a time, and another one would
// end it. They come through a socket in the phone's state folder that only its owner may open, and
// see what SharedLink shows them.
//
// On the socket travel inner frames as they do inside the seal: first the agent's welcome, then
// controls one way, and controls and file frames the other way. Numbers of downloads and pings are
// changed on the way, so that those of several commands do not meet; what an agent says unasked
// goes to all. A command that goes away ends its downloads. One that does not take what it asked
// for within two seconds is sent away, since the whole connection waits for it meanwhile.
class LinkHost {
public:
    // `send` is called on a queue of this object's own, until its destructor has returned.
    // `welcome` has its agentKey.
    LinkHost(const std::string& path, Welcome welcome, std::function<void(const Control&)> send);
    ~LinkHost();
    LinkHost(const LinkHost&) = delete;
    LinkHost& operator=(const LinkHost&) = delete;

    // Empty, or why nobody can come: people may read it.
    const std::string& problem() const { return trouble; }

    // Everything that comes from the agent, in its order, from one thread. May wait, see above.
    void offer(AgentLink::Event event);

    static std::string pathFor(const std::string& stateFolder, const std::string& agentID);

private:
    class Works;
    const std::unique_ptr<SerialQueue> queue;
    const std::shared_ptr<Works> works;
    std::string trouble;
};

}  // namespace orvel::phone
