#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "OrvelKit/Base/UniqueFunction.h"
#include "OrvelKit/Wire/Control.h"
#include "OrvelKit/Wire/Media.h"

namespace orvel {

// A connected phone, over whichever transport. Belongs to "orvel.agent"; the core owns it in its
// table of links until it has reported its end.
class PhoneLink {
public:
    virtual ~PhoneLink() = default;

    // Set by the core when it admits the phone.
    virtual bool isAuthenticated() const = 0;
    virtual void setAuthenticated(bool authenticated) = 0;
    virtual const std::string& name() const = 0;  // from the phone's hello; empty before
    virtual void setName(const std::string& name) = 0;

    // The peer's device ID; nullopt before its key is known.
    virtual std::optional<std::string> deviceID() const = 0;
    // True: it takes encoded frames by sendVideo(). False: it takes pixels by the streamer's sink.
    virtual bool wantsEncodedVideo() const = 0;
    virtual bool isInternet() const = 0;
    // The JSON of a longer control does not leave.
    virtual std::size_t longestControl() const = 0;
    // Bytes of file frames given to sendFile() and not yet sent.
    virtual std::int64_t fileBacklog() const = 0;

    // Drops the packet while 8 are outstanding.
    virtual void sendAudio(const AudioPacket& packet) = 0;
    virtual void sendControl(const Control& control) = 0;
    // `frame` is one of FileFrame::encode(). The completion is called once sent or given up,
    // unless the link has ended.
    virtual void sendFile(FrameBuffer frame, UniqueFunction<void()> completion) = 0;
    // A videoFormat or videoFrame frame; the completion as above, also when a newer keyframe
    // replaced it. Only for a link that wantsEncodedVideo().
    virtual void sendVideo(FrameBuffer frame, bool isKeyframe,
                           UniqueFunction<void()> completion) = 0;
    // Tells the phone why and ends the link when that has been sent.
    virtual void reject(Rejection reason) = 0;
    // Ends the link; again is harmless.
    virtual void close() = 0;
};

}  // namespace orvel
