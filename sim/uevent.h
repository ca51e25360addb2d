// The kernel's hot-plug events: on the board, a netlink socket is one end of a pair of local ones.
#pragma once

#include <cstddef>

namespace sim::uevent {

int open();  // the program's end, or -1 with errno set
bool is_open(int descriptor);

// An event as the kernel sends it, filled up with NULs to `size` bytes. Without a listener it is lost.
bool send(const char* text, size_t length, size_t size);

}  // namespace sim::uevent
