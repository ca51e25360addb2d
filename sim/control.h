// Lines that act now: whoever connects to a socket of the machine writes them, and has an answer to each.
#pragma once

namespace sim::control {

void open(const char* path);  // null: none
void poll();

}  // namespace sim::control
