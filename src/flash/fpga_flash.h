#pragma once

namespace marl {

// Whether the FPGA flash is open, that is, in programming mode.
bool is_fpga_flash_open();

// Forgets the first sector of the image that is being written, because a part of the image is missing: its
// end does not make it run any more, until the first sector is given anew.
void forget_fpga_image();

}  // namespace marl
