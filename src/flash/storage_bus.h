// Boards whose disk shares its bus with the flash: the bus is released before flash is written, and that is
// marked in the CMOS bytes afterwards.
#pragma once

namespace marl {

// Once per process: takes the disk off the bus on boards that have it there. False when that fails.
bool release_storage_bus();

// Marks the release in the CMOS bytes, after the last use of the flash. False when the bus device
// cannot be opened.
bool mark_storage_bus_release(bool skip);

}  // namespace marl
