// The product catalogue: every model name that the device's software knows, as data. The names of a group are
// compared with check_product_model, so a name stands for all models that begin with it.
#pragma once

#include <cstdint>
#include <span>

#include "libmarl/hwid.h"
#include "libmarl/hwinfo.h"

namespace marl::catalogue {

// How the model name of a packed hardware ID is found: the first rule of the code whose conditions all hold.
struct Condition {
    uint16_t marl_hwinfo::*field = nullptr;  // null: always holds
    uint32_t values = 0;                     // bit n: value n is accepted
};

enum class Remark : uint8_t { None, BadHardwareVersion, UnsupportedHardwareVersion };

struct ModelRule {
    uint8_t code;
    Condition conditions[2];
    const char* model;
    uint8_t category;
    Remark remark = Remark::None;
};

// Rules by code, in order; the last rule of each code has no conditions.
std::span<const ModelRule> model_rules();

// Codes whose boards carry their model name in the product definition file, bit n for code n.
inline constexpr uint32_t kDefinedByFile =
    1U << 1 | 1U << 4 | 1U << 5 | 1U << 9 | 1U << 26 | 1U << 28 | 1U << 31;
inline constexpr uint8_t kRecorderCode = 9;

using Group = std::span<const char* const>;

inline constexpr const char* kKa2[] = {"IPC-KA2"};
inline constexpr const char* kKl7[] = {"IPC-KL7"};
inline constexpr const char* kKq3[] = {"IPC-KQ3"};
inline constexpr const char* kKt1[] = {"IPC-KT1"};
inline constexpr const char* kVmk51f[] = {"VMK51F"};
inline constexpr const char* kKbA[] = {"QZ-TRX5-KB-A"};
inline constexpr const char* kCmosExempt[] = {"QZ-CA-KZ9-N"};
inline constexpr const char* kRecorders[] = {"QZ-NRX2", "QZ-NRX1"};
inline constexpr const char* kTraffic[] = {"TRV-A1", "TRV-A2", "TRV-A3", "TRV-A4", "TRV-A5", "TRV-A6"};
inline constexpr const char* kHubModels[] = {"Q3", "Q4", "Q5"};
inline constexpr const char* kFirstPair[] = {"IPC-KP1", "IPC-KP2"};
inline constexpr const char* kSecondPair[] = {"IPC-KT1", "IPC-KT2"};
inline constexpr const char* kModulePair[] = {"VMK51F", "VMK52F"};
inline constexpr const char* kRefused[] = {"IPC-KR1", "IPC-KR2", "IPC-KR3"};
inline constexpr const char* kKl7Group[] = {"IPC-KL7", "IPC-KL8", "IPC-KL9"};
inline constexpr const char* kMultiPort[] = {"IPC-KM1", "IPC-KM2", "IPC-KM3", "IPC-KM4",
                                             "IPC-KM5", "IPC-KM6", "IPC-KM7"};
inline constexpr const char* kCameras[] = {"QZ-CA-KZ9-N", "QZ-CB-KZ1-N", "IPC-KN1F", "IPC-KN1P", "IPC-KN1Q",
                                           "IPC-KN1S",    "IPC-KN1E",    "IPC-KB1",  "IPC-KB2",  "IPC-KD1",
                                           "IPC-KD2",     "IPC-KD3",     "IPC-KD4",  "IPC-KD5",  "IPC-KE1",
                                           "IPC-KE2",     "IPC-KE3",     "IPC-KE4",  "IPC-KE5",  "IPC-KE6"};

// The main processor chip whose boards have the modem switch of the traffic models and their modules.
inline constexpr int kMainChipDm368 = 6;

// Encoder families: "KXE", the number of video channels, "A" and the family's letter.
enum class Encoder : char { Af = 'F', Ah = 'H', Am = 'M' };

// Whether the board's model belongs to a group or an encoder family.
bool is_model_of(Group group);
bool is_encoder(Encoder family);

}  // namespace marl::catalogue
