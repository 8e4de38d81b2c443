#pragma once

#include <boost/asio/io_context.hpp>

#include "OrvelKit/Base/SerialQueue.h"

namespace orvel {

// The Asio loop under a queue of SerialQueue::Kind, for code that has sockets or descriptors on it:
// what completes there runs as one of the queue's tasks. Asking a queue that has none, as one in
// virtual time or the main queue of a program with windows, is a programming error. Included only
// by such code, to keep Boost out of everything else.
boost::asio::io_context& ioContext(SerialQueue& queue);

}  // namespace orvel
