#include "OrvelAgent/Platform/Linux/PulseMonitor.h"
#include "OrvelAgent/Platform/Linux/ScreenWithSound.h"
#include "OrvelAgent/Platform/Linux/X11ScreenSource.h"

namespace orvel {

std::unique_ptr<ScreenSource> ScreenSource::create(SerialQueue& captureQueue,
                                                   SerialQueue& audioQueue) {
    return std::make_unique<ScreenWithSound>(captureQueue, audioQueue,
                                             std::make_unique<X11ScreenSource>(captureQueue),
                                             std::make_shared<PulseMonitor>(audioQueue));
}

}  // namespace orvel
