#pragma once

namespace sentrel {

// One pass of the Ethernet check. Every 26 passes it looks at the MAC driver's error state; while the
// driver's file cannot be read, in every pass. An error that stays over 5 readings, one second apart, takes
// eth0 down and up and puts its stored default route back: that holds the loop for up to about 8 s.
void check_ethernet();

// Takes an interface "up" or "down" (`cmd`). 0, or -1 for a null argument, another command or without a
// socket; what the kernel says to the request is not looked at.
int SetEthUpDown(const char* name, const char* cmd);

}  // namespace sentrel
