// The product catalogue: every model name that the device's software knows, as data. The names of a group are
// compared with check_product_model, so a name stands for all models that begin with it.
#pragma once

#include <cstdint>
#include <span>

#include "base/words.h"
#include "libmarl/hwid.h"
#include "libmarl/hwinfo.h"

namespace marl::catalogue {

// How the model name of a packed hardware ID is found: the first rule of the code whose conditions all hold.
enum class Field : uint8_t { None, Analyse, Sensor, Hardware, Video, Net };

struct Condition {
    Field field = Field::None;  // none: always holds
    uint16_t values = 0;        // bit n: value n is accepted
};

bool holds(const Condition& condition, const marl_hwinfo& info);

enum class Remark : uint8_t { None, BadHardwareVersion, UnsupportedHardwareVersion };

struct ModelRule {
    uint8_t code;
    Condition conditions[2];
    char model[13];
    uint8_t category;
    Remark remark = Remark::None;
};

// Rules by code, in order; the last rule of each code has no conditions.
std::span<const ModelRule> model_rules();

// Codes whose boards carry their model name in the product definition file, bit n for code n.
inline constexpr uint32_t kDefinedByFile =
    1U << 1 | 1U << 4 | 1U << 5 | 1U << 9 | 1U << 26 | 1U << 28 | 1U << 31;
inline constexpr uint8_t kRecorderCode = 9;

using Group = Words;

inline constexpr Group kKa2 = "IPC-KA2";
inline constexpr Group kKl7 = "IPC-KL7";
inline constexpr Group kKq3 = "IPC-KQ3";
inline constexpr Group kKt1 = "IPC-KT1";
inline constexpr Group kVmk51f = "VMK51F";
inline constexpr Group kKbA = "QZ-TRX5-KB-A";
inline constexpr Group kCmosExempt = "QZ-CA-KZ9-N";
inline constexpr Group kRecorders = "QZ-NRX2\0QZ-NRX1";
inline constexpr Group kTraffic = "TRV-A1\0TRV-A2\0TRV-A3\0TRV-A4\0TRV-A5\0TRV-A6";
inline constexpr Group kHubModels = "Q3\0Q4\0Q5";
inline constexpr Group kFirstPair = "IPC-KP1\0IPC-KP2";
inline constexpr Group kSecondPair = "IPC-KT1\0IPC-KT2";
inline constexpr Group kModulePair = "VMK51F\0VMK52F";
inline constexpr Group kRefused = "IPC-KR1\0IPC-KR2\0IPC-KR3";
inline constexpr Group kKl7Group = "IPC-KL7\0IPC-KL8\0IPC-KL9";
inline constexpr Group kMultiPort = "IPC-KM1\0IPC-KM2\0IPC-KM3\0IPC-KM4\0IPC-KM5\0IPC-KM6\0IPC-KM7";
inline constexpr Group kCameras =
    "QZ-CA-KZ9-N\0QZ-CB-KZ1-N\0IPC-KN1F\0IPC-KN1P\0IPC-KN1Q\0IPC-KN1S\0IPC-KN1E\0IPC-KB1\0IPC-KB2\0"
    "IPC-KD1\0IPC-KD2\0IPC-KD3\0IPC-KD4\0IPC-KD5\0IPC-KE1\0IPC-KE2\0IPC-KE3\0IPC-KE4\0IPC-KE5\0"
    "IPC-KE6";

// The main processor chip whose boards have the modem switch of the traffic models and their modules.
inline constexpr int kMainChipDm368 = 6;

// Encoder families: "KXE", the number of video channels, "A" and the family's letter.
enum class Encoder : char { Af = 'F', Ah = 'H', Am = 'M' };

// Whether the board's model belongs to a group or an encoder family.
bool is_model_of(Group group);
bool is_encoder(Encoder family);

}  // namespace marl::catalogue
