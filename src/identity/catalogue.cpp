#include "identity/catalogue.h"

#include <cstdio>

// The product types and their models. A type without models in the colon-separated identification holds its
// own number; the boards of types 1 and 4 carry packed IDs only.
extern const char* const MODEL_TABLE[MARL_MODEL_ROWS][MARL_MODEL_SLOTS] = {
    /*  0 */ {"0"},
    /*  1 */ {"1"},
    /*  2 */ {"IPC-KN1F", "IPC-KN1P", "IPC-KN1Q", "IPC-KN1S", "IPC-KN1E"},
    /*  3 */ {"IPC-KB1", "IPC-KB2"},
    /*  4 */ {"4"},
    /*  5 */ {"TRV-A1-I", "TRV-A1-S"},
    /*  6 */
    {"KXE1AF", "KXE2AF", "KXE4AF", "KXE8AF", "KXE16AF", "KXE1AH", "KXE2AH", "KXE4AH", "KXE8AH", "KXE16AH",
     "KXE1AM", "KXE2AM", "KXE4AM", "KXE8AM", "KXE16AM"},
    /*  7 */ {"IPC-KD1", "IPC-KD2", "IPC-KD3", "IPC-KD4", "IPC-KD5"},
    /*  8 */ {"IPC-KE1", "IPC-KE2", "IPC-KE3", "IPC-KE4", "IPC-KE5", "IPC-KE6"},
    /*  9 */ {"QZ-NRX2", "QZ-NRX1"},
    /* 10 */ {"IPC-KA2"},
    /* 11 */ {"IPC-KT1", "IPC-KT2"},
    /* 12 */ {"IPC-KQ3"},
    /* 13 */ {"Q3"},
    /* 14 */ {"Q4"},
    /* 15 */ {"Q5"},
    /* 16 */ {"16"},
    /* 17 */ {"IPC-KP1", "IPC-KP2"},
    /* 18 */ {"IPC-KM1", "IPC-KM2", "IPC-KM3", "IPC-KM4", "IPC-KM5", "IPC-KM6", "IPC-KM7"},
    /* 19 */ {"IPC-KN1S"},
    /* 20 */ {"20"},
    /* 21 */ {"21"},
    /* 22 */ {"IPC-KW1"},
    /* 23 */ {"IPC-KL7", "IPC-KL8", "IPC-KL9"},
    /* 24 */ {"IPC-KW2"},
    /* 25 */ {"IPC-KR1", "IPC-KR2", "IPC-KR3"},
    /* 26 */ {"TRV-A6-S"},
    /* 27 */ {"VMK51F", "VMK52F"},
    /* 28 */ {"TRV-A4-I", "TRV-B4-S"},
    /* 29 */ {"IPC-KS1", "IPC-KS2", "IPC-KS3"},
    /* 30 */ {"QZ-TRX5-KB-A"},
    /* 31 */ {"TRV-A3-I", "TRV-A3-S"},
    /* 32 */ {"QZ-CA-KZ9-N"},
    /* 33 */ {"QZ-CB-KZ1-N"},
    /* 34 */ {"NULL"},
};

namespace marl::catalogue {
namespace {

constexpr uint16_t marl_hwinfo::*kFields[] = {
    nullptr,
    &marl_hwinfo::intelleg_analyse,
    &marl_hwinfo::fvideo_chip,
    &marl_hwinfo::hd_ver,
    &marl_hwinfo::video_interface,
    &marl_hwinfo::net_interface,
};

constexpr Condition is(Field field, std::initializer_list<unsigned> values) {
    Condition condition{field, 0};
    for (const unsigned value : values) condition.values |= static_cast<uint16_t>(1U << value);
    return condition;
}

constexpr uint8_t kUnknown = 0;
constexpr uint8_t kItc = 1;
constexpr uint8_t kIpc = 2;

constexpr ModelRule kRules[] = {
    {0, {}, "unknow", kUnknown},
    {1, {is(Field::Analyse, {1})}, "TRV-A2-I", kItc},
    {1, {}, "TRV-A2-S", kItc},
    {2, {is(Field::Net, {1})}, "IPC-KN1F", kIpc},
    {2, {is(Field::Video, {5}), is(Field::Sensor, {12})}, "IPC-KN1P", kUnknown},
    {2, {is(Field::Video, {5}), is(Field::Sensor, {13})}, "IPC-KN1Q", kUnknown},
    {2, {is(Field::Sensor, {4, 5, 9})}, "IPC-KN1S", kIpc},
    {2, {}, "IPC-KN1E", kIpc},
    {3, {is(Field::Video, {1})}, "IPC-KB1", kIpc},
    {3, {}, "IPC-KB2", kIpc},
    {4, {}, "TRV-A5-S", kItc},
    {5, {is(Field::Analyse, {1})}, "TRV-A1-I", kItc},
    {5, {}, "TRV-A1-S", kItc},
    {6, {is(Field::Hardware, {2})}, "KXE4AH", kIpc},
    {6, {}, "KXE4AF", kIpc},
    {7, {is(Field::Sensor, {1}), is(Field::Hardware, {1})}, "IPC-KD1", kIpc},
    {7, {is(Field::Sensor, {1})}, "IPC-KD2", kIpc},
    {7, {is(Field::Sensor, {7})}, "IPC-KD3", kIpc},
    {7, {is(Field::Sensor, {10})}, "IPC-KD4", kIpc},
    {7, {is(Field::Sensor, {15})}, "IPC-KD5", kIpc},
    {7, {}, "Unkown Type", kIpc},
    {8, {is(Field::Sensor, {1}), is(Field::Hardware, {1})}, "IPC-KE1", kIpc},
    {8, {is(Field::Sensor, {1})}, "IPC-KE2", kIpc},
    {8, {is(Field::Hardware, {0, 1})}, "IPC-KE3", kIpc},
    {8, {is(Field::Hardware, {2})}, "IPC-KE4", kIpc},
    {8, {is(Field::Hardware, {3})}, "IPC-KE5", kIpc},
    {8, {is(Field::Hardware, {4})}, "IPC-KE6", kIpc},
    {8, {}, "", kIpc, Remark::BadHardwareVersion},
    {kRecorderCode, {}, "QZ-NRX2", kItc},
    {10, {}, "IPC-KA2", kIpc},
    {11, {}, "IPC-KT1", kIpc},
    {12, {}, "IPC-KQ3", kIpc},
    {13, {}, "Q3", kIpc},
    {14, {}, "Q4", kIpc},
    {15, {}, "Q5", kIpc},
    {16, {}, "unknow", kUnknown},
    {17, {}, "IPC-KP1", kIpc},
    {18, {is(Field::Hardware, {0})}, "IPC-KM1", kIpc},
    {18, {is(Field::Hardware, {1})}, "IPC-KM2", kIpc},
    {18, {}, "IPC-KM1", kIpc, Remark::UnsupportedHardwareVersion},
    {19, {}, "IPC-KN1S", kUnknown},
    {20, {}, "unknow", kUnknown},
    {21, {}, "unknow", kUnknown},
    {22, {}, "IPC-KW1", kIpc},
    {23, {}, "unknow", kUnknown},
    {24, {}, "IPC-KW2", kIpc},
    {25, {is(Field::Sensor, {5})}, "IPC-KR1", kIpc},
    {25, {}, "IPC-KR2", kIpc},
    {26, {}, "TRV-A6-S", kItc},
    {27, {}, "VMK51F", kUnknown},
    {28, {is(Field::Analyse, {1})}, "TRV-A4-I", kItc},
    {28, {}, "TRV-B4-S", kItc},
    {29, {is(Field::Sensor, {7})}, "IPC-KS1", kIpc},
    {29, {is(Field::Sensor, {8})}, "IPC-KS2", kIpc},
    {29, {}, "IPC-KS3", kIpc},
    {30, {}, "QZ-TRX5-KB-A", kUnknown},
    {31, {is(Field::Analyse, {1})}, "TRV-A3-I", kItc},
    {31, {}, "TRV-A3-S", kItc},
};

}  // namespace

bool holds(const Condition& condition, const marl_hwinfo& info) {
    if (condition.field == Field::None) return true;
    return (condition.values >> (info.*kFields[static_cast<size_t>(condition.field)]) & 1) != 0;
}

std::span<const ModelRule> model_rules() { return kRules; }

bool is_model_of(Group group) {
    for (const char* name : group) {
        if (check_product_model(name) == 1) return true;
    }
    return false;
}

bool is_encoder(Encoder family) {
    char name[16];
    const auto channels = static_cast<unsigned>(get_dvr_info(MARL_INFO_VIDEO_CHANNEL));
    snprintf(name, sizeof name, "KXE%uA%c", channels, static_cast<char>(family));
    return check_product_model(name) == 1;
}

}  // namespace marl::catalogue
