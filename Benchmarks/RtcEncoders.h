#pragma once

#include "OrvelAgent/Platform/Fake/SyntheticScreen.h"

namespace orvel {

// Codes `count` pictures of a scene with the agent's encoder and the WebRTC library's VP8 and H.264
// encoders in turn, as a connection sets them up for 60 pictures a second at 8 Mbit/s, and prints a
// line: CPU ms a picture, the ratios of the first to the others, Mbit/s, per cent of the pictures
// that were coded and not left out.
void compareRtcEncoders(SyntheticScreen::Scene scene, int width, int height, int count);

}  // namespace orvel
