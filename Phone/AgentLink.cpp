#include "Phone/AgentLink.h"

#include "OrvelKit/Wire/Framing.h"

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

AgentLink::Event::Case AgentLink::Event::decode(FrameKind kind, ByteView payload) {
    switch (kind) {
        case FrameKind::control:
            return Framing::decodeControl(payload);
        case FrameKind::videoFormat:
            return VideoFormat::decode(payload);
        case FrameKind::videoFrame:
            return VideoFrame::decode(payload);
        case FrameKind::audio:
            return AudioPacket::decode(payload);
        case FrameKind::file:
            return FileFrame::decode(payload);
        case FrameKind::handshake:
        case FrameKind::sealed:
            break;
    }
    return Frame{kind, Bytes(payload.begin(), payload.end())};
}

}  // namespace orvel::phone
