#pragma once

#include <boost/asio/io_context.hpp>

#include "OrvelKit/Base/SerialQueue.h"

namespace orvel {

// The event loop under a queue in real time, for code that has sockets or descriptors on it: what
// completes there runs as one of the queue's tasks. A queue in virtual time has none; asking it is
// a programming error. Included only by such code, to keep Boost out of everything else.
boost::asio::io_context& ioContext(SerialQueue& queue);

}  // namespace orvel
