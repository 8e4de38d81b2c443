#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "OrvelKit/Base/Clock.h"

namespace orvel::phone {

// Where in a film each packet of sound belongs. Packets last 20 ms and follow each other without a
// hole from the film's beginning on; what is missing has to be put between them. The numbers tell
// what was lost; times of arrival tell where the sound began and where it stood still. A network
// that stalls and then hurries is waited for: only what is late or early for a second is moved.
class SoundTimeline {
public:
    static constexpr Duration packetDuration = std::chrono::milliseconds(20);

    struct Step {
        std::size_t silence = 0;  // packets to be put in first
        std::size_t lost = 0;     // then these, to be concealed
        bool isDropped = false;   // the packet itself has no place any more
    };
    // `arrival`: since the film's beginning.
    Step add(std::uint32_t sequence, Duration arrival);

    // So many packets of silence are to be put in now, because no sound has come for two seconds.
    std::size_t silenceUntil(Duration now);
    // So many bring the sound to the film's end.
    std::size_t silenceToEnd(Duration end);

    // Of the packets so far.
    Duration length() const { return static_cast<std::int64_t>(placed) * packetDuration; }

private:
    // Since when all packets have been off in one direction, and the least by which they were.
    struct Row {
        std::optional<Duration> since;
        Duration least{};
        bool isLong(Duration now) const;
        void note(Duration off, Duration now);
    };

    std::size_t place(std::int64_t packets);

    std::size_t placed = 0;
    std::optional<std::uint32_t> last;  // the number of the last packet
    Row late, early;
    std::size_t surplus = 0;  // packets to be dropped
};

}  // namespace orvel::phone
