#include "Phone/AgentLink.h"

namespace orvel::phone {

std::string AgentLink::Closed::describe() const {
    const auto with = [&](const std::string& sentence) {
        return detail.empty() ? sentence + "." : sentence + ": " + detail + ".";
    };
    switch (reason) {
        case Reason::noAddress:
            return with("The computer's name is not known");
        case Reason::notConnected:
            return with("The computer cannot be reached");
        case Reason::closedByAgent:
            return with("The computer ended the connection");
        case Reason::reset:
            return with("The connection broke off");
        case Reason::nonsense:
            return with("The computer sent something that makes no sense");
        case Reason::timedOut:
            return with("The computer does not answer");
        case Reason::closedHere:
            return with("The connection was closed");
    }
    return with("The connection ended");
}

}  // namespace orvel::phone
