// The packed fields of the raw hardware ID.
#pragma once

#include <cstdint>

#include "base/bytes.h"

namespace marl {

struct BitField {
    uint8_t first;
    uint8_t width;
};

namespace raw_id {

inline constexpr BitField kProductCode{0, 5};
inline constexpr BitField kVideoChannels{5, 5};
inline constexpr BitField kAudioChannels{10, 5};
inline constexpr BitField kAlarmMode{15, 5};
inline constexpr BitField kFvideoChip{20, 4};
inline constexpr BitField kDspChip{24, 4};
inline constexpr BitField kAnalogAudioMode{28, 4};
inline constexpr BitField kTalkback{32, 4};
inline constexpr BitField kBvideoChip{36, 3};
inline constexpr BitField kStoreInterface{39, 3};
inline constexpr BitField kMatrix{42, 3};
inline constexpr BitField kWirelessInterface{45, 2};
inline constexpr BitField kHdEncode{47, 2};
inline constexpr BitField kHdVer{49, 3};
inline constexpr BitField kVideoInterface{52, 4};
inline constexpr BitField kNetInterface{56, 3};
inline constexpr BitField kIntellegAnalyse{59, 1};
inline constexpr BitField kHwinfoVer{60, 4};

// Five bits cannot say 32, so 0 stands for it.
inline constexpr uint16_t kZeroChannels = 32;

}  // namespace raw_id

// A field of the raw ID `id`, of which the first 8 bytes are packed.
inline uint16_t raw_field(const uint8_t* id, BitField field) {
    const uint64_t mask = (uint64_t{1} << field.width) - 1;
    return static_cast<uint16_t>((load_le<uint64_t>(id) >> field.first) & mask);
}

}  // namespace marl
