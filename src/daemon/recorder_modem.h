#pragma once

namespace sentrel {

// Sends the microcontroller of the recorder models the frame that powers their 3G modem. True when it is
// written. False when the device cannot be opened, or after 5 failed writes: the next pass starts over.
bool power_recorder_modem();

}  // namespace sentrel
