#include "Phone/SoundTimeline.h"

#include <algorithm>

namespace orvel::phone {

namespace {

using namespace std::chrono_literals;

constexpr Duration tolerance = 100ms;  // of arrival
constexpr Duration longRow = 1s;
constexpr Duration certainPause = 2s;   // later than any network that is of use
constexpr std::int64_t mostLost = 500;  // ten seconds: more is another row of numbers

}  // namespace

SoundTimeline::Step SoundTimeline::add(std::uint32_t sequence, Duration arrival) {
    Step step;
    if (!last) {
        step.silence = place(arrival / packetDuration - static_cast<std::int64_t>(placed));
    } else if (const auto gap = static_cast<std::int32_t>(sequence - *last);
               gap > 1 && gap <= mostLost) {
        step.lost =
            place(std::min<std::int64_t>(gap - 1, (arrival - length() + longRow) / packetDuration));
    }
    last = sequence;
    if (surplus > 0) {
        --surplus;
        step.isDropped = true;
        return step;
    }
    const Duration off = arrival - length();
    late.note(off, arrival);
    early.note(-off, arrival);
    if (off > certainPause || late.isLong(arrival)) {
        step.silence += place((off > certainPause ? off : late.least) / packetDuration);
        late = {};
    } else if (early.isLong(arrival)) {
        surplus = static_cast<std::size_t>(early.least / packetDuration);
        early = {};
    }
    place(1);
    return step;
}

std::size_t SoundTimeline::silenceUntil(Duration now) {
    if (now - length() <= certainPause) return 0;
    return place((now - certainPause / 2 - length()) / packetDuration);
}

std::size_t SoundTimeline::silenceToEnd(Duration end) {
    return place((end - length()) / packetDuration);
}

bool SoundTimeline::Row::isLong(Duration now) const {
    return since && now - *since >= longRow;
}

void SoundTimeline::Row::note(Duration off, Duration now) {
    if (off <= tolerance) {
        since.reset();
        return;
    }
    least = since ? std::min(least, off) : off;
    if (!since) since = now;
}

std::size_t SoundTimeline::place(std::int64_t packets) {
    const auto count = static_cast<std::size_t>(std::max<std::int64_t>(packets, 0));
    placed += count;
    return count;
}

}  // namespace orvel::phone
