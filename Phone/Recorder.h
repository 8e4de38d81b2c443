#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "OrvelKit/Base/Clock.h"
#include "OrvelKit/Wire/Media.h"
#include "Phone/H264.h"

namespace orvel::phone {

// Writes pictures and sound as they come into an .mp4 file (or .mkv, by the ending), without
// decoding them. Film time is the time of arrival, for both: an agent repeats a still picture with
// its old time stamp, so those may step back, and sound has no stamps. Each picture stands until
// the next one, the last one until finish(). Sound is one track without holes: what was lost is
// concealed by the player, and where nothing came it is silent.
//
// The file is written in fragments of a second: one that was not finished plays up to there. A new
// size, or other parameter sets, need a file of their own: PATH, then PATH with -2, -3 ... before
// its ending. One thread.
class Recorder {
public:
    enum class Sound { none, recorded };
    explicit Recorder(std::string path, Sound sound = Sound::none);
    ~Recorder();  // finish()
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    // Frames before the first keyframe after a format are left out. False: the file cannot be
    // written (any more); problem() says why, and all that follows is ignored.
    bool add(const VideoFormat& format, MonotonicTime arrivedAt);
    bool add(const VideoFrame& frame, MonotonicTime arrivedAt);
    bool add(const AudioPacket& packet, MonotonicTime arrivedAt);  // before any film: left out
    // No more frames follow: the last one stands until `now`.
    bool finish(MonotonicTime now);

    const std::string& problem() const { return trouble; }
    const std::vector<std::string>& files() const { return paths; }
    std::uint64_t frames() const { return frameCount; }

private:
    struct File;
    bool open(MonotonicTime start);
    bool addVideoTrack();
    void addSoundTrack();
    bool writeHeader();
    bool write(MonotonicTime until);
    bool writeSound(ByteView opus, std::size_t times);
    bool writePacket(int track, ByteView data, std::int64_t begin, std::int64_t duration,
                     bool isKey);
    bool fail(const std::string& name, int error);

    const std::string path;
    const Sound sound;
    std::unique_ptr<File> file;
    std::vector<std::string> paths;
    std::string trouble;
    VideoFormat format;
    std::uint64_t frameCount = 0;
};

}  // namespace orvel::phone
