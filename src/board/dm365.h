// The DM365 video co-processor as its host sees it: the requests of the SPI link's driver, what the words
// that travel there mean, and the record of its version. The daemon's monitor, the firmware upgrade and the
// summaries share them.
#pragma once

#include <cstdint>

namespace marl::dm365 {

inline constexpr const char* kLinkDevice = "/dev/misc/spi0";

inline constexpr unsigned long kSetMode = 0x40047301;
inline constexpr unsigned long kReadStatus = 0x80047302;
inline constexpr unsigned long kReadAck = 0x80047304;
inline constexpr unsigned long kQueryAlive = 0x40047305;
inline constexpr unsigned long kFactoryReset = 0x40047306;
inline constexpr unsigned long kBootWait = 0x40047307;
inline constexpr unsigned long kQueryVersionOld = 0x40047309;
inline constexpr unsigned long kQuery2a = 0x4004730a;
inline constexpr unsigned long kBeginExchange = 0x4004730b;
inline constexpr unsigned long kEndExchange = 0x4004730c;
inline constexpr unsigned long kQueryVersion = 0x4004730d;

inline constexpr uint32_t kUpgrading =
    0x2468;  // the link's status and mode during a firmware upgrade, and its command
inline constexpr uint32_t kAlive = 0x6984;
inline constexpr uint32_t kAbnormal2a = 1;

// The version record as the driver fills it and the file keeps it. The texts are NUL-terminated where
// they fit. The monitor makes the file when it is missing; an upgrade removes it, so that the new
// firmware is asked.
inline constexpr const char* kVersionPath = "/mnt/mtd/dm365_version";

struct VersionRecord {
    char name[32];
    char version[16];
    char second_version[16];
};
static_assert(sizeof(VersionRecord) == 64);

}  // namespace marl::dm365
