#pragma once

namespace marl {

// Whether the FPGA flash is open, that is, in programming mode.
bool is_fpga_flash_open();

}  // namespace marl
