// The partition table of the host's own flash.
#pragma once

#include <cstdint>

namespace marl {

inline constexpr int kMaxPartitions = 15;

struct Partitions {
    int NUM_MTDS;                            // 0: not read yet
    uint32_t CFG_FLASH_SEC_SIZE;             // erase size of the first partition, which all have
    uint32_t MTD_START[kMaxPartitions + 1];  // addresses; the last one in use is the end
};

// Written once, by flash_init.
extern Partitions g_partitions;

}  // namespace marl
