#pragma once

#include "libmarl/usb_devices.h"

namespace marl {

// dvr_find_file for serial interfaces: 7 levels, which is as deep as a device behind a hub has them, and
// without symbolic links.
int find_serial_files(const DvrFindRequest& request);

}  // namespace marl
