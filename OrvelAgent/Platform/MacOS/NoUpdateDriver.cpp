#include "OrvelAgent/Platform/NoUpdateDriver.h"

namespace orvel {

// This build has no update framework.
std::unique_ptr<UpdateDriver> UpdateDriver::create(SerialQueue&, Defaults&, HostInfo&,
                                                   const StateLocation&) {
    return std::make_unique<NoUpdateDriver>();
}

}  // namespace orvel
