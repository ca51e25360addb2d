#pragma once

namespace sentrel {

// Body of the co-processor monitor, for clone_thread_create: supervises the DM365 for as long as
// the board runs.
//
// Three symptoms, each with a fault counter of its own: the capture front end stalled (looked at every 5 s),
// the SPI link silent, the "2A" status abnormal (both about every 15 s). A fault resets the co-processor and
// gives it 45 s to boot; from the third in a row on it is only reported. A good reading forgives. A firmware
// upgrade of the co-processor suspends every reset. Devices that are missing are reopened up to four times, 5
// s apart; without both of them nothing is checked.
int dm365_monitor_thread(void* unused);

}  // namespace sentrel
