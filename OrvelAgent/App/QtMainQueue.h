#pragma once

#include "OrvelKit/Base/SerialQueue.h"

namespace orvel {

// The main queue of a program with windows: its tasks run in Qt's event loop, between events of
// windows, which are on the queue as well: whatever Qt calls on the application's thread is. Nested
// loops, as of an open menu, run tasks too. stop() ends them all.
//
// Made, run and destroyed on the thread of the application object (QCoreApplication), while that
// lives. Sleeps while there is nothing to do; delays are rounded up to milliseconds.
class QtMainQueue : public SerialQueue {
public:
    QtMainQueue();
};

}  // namespace orvel
