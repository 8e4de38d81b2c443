#pragma once

namespace orvel {

// What the portable socket code cannot say: both take the socket's descriptor and ignore options
// that the system refuses.

// Before it is bound: accepts over every kind of link, peer-to-peer ones too.
void prepareListeningSocket(int descriptor);

// A phone's connection: no Nagle delay; a silent peer is probed after 30 s, three times at 10 s,
// and unacknowledged data is waited for as long as that takes together; no more than 128 KiB unsent
// in the kernel, so that frames wait where they can still be replaced.
void prepareConnectedSocket(int descriptor);

}  // namespace orvel
