#include "OrvelAgent/Update/UpdateSchedule.h"

#include <QDateTime>
#include <utility>

namespace orvel {

namespace {

constexpr const char* lastCheckKey = "SULastCheckTime";

Duration part(double ratio, Duration whole) {
    return Duration(static_cast<Duration::rep>(ratio * static_cast<double>(whole.count())));
}

std::optional<WallTime> timeFrom(const std::optional<std::string>& text) {
    if (!text) return std::nullopt;
    const auto time = QDateTime::fromString(QString::fromStdString(*text), Qt::ISODate);
    if (!time.isValid()) return std::nullopt;
    // Years that WallTime does not hold are none of a check.
    constexpr qint64 limit = std::chrono::seconds(8'000'000'000).count();
    const auto seconds = time.toSecsSinceEpoch();
    if (seconds < 0 || seconds > limit) return std::nullopt;
    return WallTime(std::chrono::seconds(seconds));
}

}  // namespace

UpdateSchedule::UpdateSchedule(Defaults& userDefaults, std::function<double()> randomNumbers)
    : defaults(userDefaults), random(std::move(randomNumbers)), delay(part(random(), maxDelay)) {}

Duration UpdateSchedule::untilFirstLook() const {
    return shortestStart + part(random(), longestStart - shortestStart);
}

bool UpdateSchedule::isDue(WallTime now) const {
    const auto last = timeFrom(defaults.string(lastCheckKey));
    return !last || *last > now || now - *last >= checkInterval + delay;
}

void UpdateSchedule::checked(WallTime now) {
    const auto seconds =
        std::chrono::duration_cast<std::chrono::seconds>(now.time_since_epoch()).count();
    const auto text = QDateTime::fromSecsSinceEpoch(seconds, Qt::UTC).toString(Qt::ISODate);
    defaults.set(lastCheckKey, text.toStdString());
    delay = part(random(), maxDelay);
}

}  // namespace orvel
