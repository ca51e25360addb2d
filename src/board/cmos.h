// The map of the CMOS bytes, and what the library alone may do with them.
#pragma once

#include <cstdint>
#include <span>

namespace marl::cmos {

// Offsets of all bytes in use.
inline constexpr uint8_t kRunMarker = 1;        // how a run ended: 0 after an orderly end, else 1
inline constexpr uint8_t kBusReleaseMark = 27;  // two bytes: the storage bus was released for a flash write
inline constexpr uint8_t kNetworkMagic = 40;    // two bytes: whether the copy of eth0's settings is valid
inline constexpr uint8_t kResetMark = 42;
inline constexpr uint8_t kNetworkCopy = 44;  // eth0's address, netmask and gateway, four bytes each

inline constexpr uint8_t kFactoryReset = 'f';  // in kResetMark

// As readCMOS(); fewer bytes than were asked for are a failure, but for the board that has none and reads zeros.
bool read(uint8_t offset, std::span<uint8_t> out);

// Takes the CMOS lock for the rest of the process's life: no CMOS access of any thread can follow.
void hold_for_good();

}  // namespace marl::cmos
