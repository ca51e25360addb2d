// Identification of the board: the colon-separated scheme, and the packed raw ID with its three sources.
#include "libmarl/hwid.h"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string_view>

#include "base/bytes.h"
#include "base/devices.h"
#include "base/diag.h"
#include "base/fd.h"
#include "base/lock.h"
#include "base/module.h"
#include "base/proc_field.h"
#include "base/text.h"
#include "identity/catalogue.h"
#include "identity/raw_id.h"
#include "identity/source.h"
#include "libmarl/env.h"

namespace {

using namespace marl;

constexpr const char* kKey = "HWID";
constexpr const char* kIdRecordPath = "/mnt/mtdblock1";
constexpr const char* kDefinitionPath = "/mnt/custom/ProductDefinition";

// The sources whose failure leaves the identity open, a bit each.
enum Source : uint8_t { kEnvironment = 1, kBootParameters = 2, kIdRecord = 4, kDefinition = 8 };

// What one identification finds out. It is made aside and published as a whole, because programs read the
// public record at any time.
struct Identity {
    marl_hwinfo info;
    uint8_t id[MARL_HWID_SIZE];
    int32_t type;
    uint32_t code;
    bool found;             // some source knew the board
    bool colon_separated;   // and named it: nothing is left to decode
    bool from_environment;  // the raw ID is that of the boot environment
    uint8_t failed;         // sources that might have said otherwise and could not be asked
};

// Written by identifications, which the lock makes one at a time.
struct {
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    uint8_t environment_id[MARL_HWID_SIZE] = {};  // that of the boot environment, which is taken once
    bool found = false;                           // as last published
    bool is_open = false;                         // a source has to be asked again
} constinit g_identification;

void note(Identity& board, Source source, Answer answer) {
    const auto others = static_cast<uint8_t>(board.failed & ~source);
    board.failed = answer == Answer::Failed ? static_cast<uint8_t>(others | source) : others;
}

// Takes the text up to the next `separator` off the front of `rest`; nothing when all parts are taken.
std::optional<std::string_view> next_part(std::optional<std::string_view>& rest, char separator) {
    if (!rest) return std::nullopt;
    const size_t end = rest->find(separator);
    const std::string_view part = first_of(*rest, end);
    if (end == std::string_view::npos) {
        rest.reset();
    } else {
        rest->remove_prefix(end + 1);
    }
    return part;
}

uint16_t hexadecimal_part(std::string_view part) {
    char digits[32];
    copy_text(digits, sizeof digits, part);
    return static_cast<uint16_t>(hexadecimal(digits));
}

// The numbers of the record, from hwid_ver on, which the parts fill by position.
constexpr size_t kNumbers = offsetof(marl_hwinfo, hwid_ver);
constexpr size_t kSlots = (sizeof(marl_hwinfo) - kNumbers) / sizeof(uint16_t);
constexpr size_t kCountSlot = (offsetof(marl_hwinfo, cpu_count) - kNumbers) / sizeof(uint16_t);
constexpr size_t kClockSlots = 1 + MARL_CPU_MAX;
constexpr unsigned kClockPart = 12;

using Slots = std::array<uint16_t, kSlots>;

void take_clocks(Slots& slots, std::string_view list) {
    uint16_t& count = slots[kCountSlot];
    count = 0;
    std::optional<std::string_view> rest;
    if (!list.empty()) rest = list;
    while (const auto clock = next_part(rest, '_')) {
        if (count == MARL_CPU_MAX) break;
        slots[kCountSlot + ++count] = hexadecimal_part(*clock);
    }
}

bool is_colon_separated(const char* text) { return strchr(text, ':') != nullptr; }

void take_colon_separated(Identity& board, std::string_view text) {
    std::optional<std::string_view> rest = text;
    char model[128];
    copy_text(model, sizeof model, *next_part(rest, ':'));
    copy_text(board.info.product_model, sizeof board.info.product_model, model);
    board.type = string2ValueProductType(model, MODEL_TABLE, 0);
    Slots slots{};
    size_t slot = 0;
    for (unsigned number = 1; const auto part = next_part(rest, ':'); ++number) {
        if (number == kClockPart || part->find('_') != std::string_view::npos) {
            take_clocks(slots, *part);
            slot += kClockSlots;
        } else if (slot < slots.size()) {
            slots[slot++] = hexadecimal_part(*part);
        }
    }
    // A list of clocks that comes early moves a later part there.
    slots[kCountSlot] = std::min<uint16_t>(slots[kCountSlot], MARL_CPU_MAX);
    memcpy(reinterpret_cast<char*>(&board.info) + kNumbers, slots.data(), sizeof slots);
    board.found = true;
    board.colon_separated = true;
    board.failed = 0;  // no other source would have been asked
}

void take_id(Identity& board, const uint8_t* id) {
    memcpy(board.id, id, sizeof board.id);
    board.code = raw_field(board.id, raw_id::kProductCode);
    board.found = true;
}

Answer ask_boot_parameters(char (&digits)[28]) {
    int result = read_proc_field(device::kBootParameters, kKey, digits, {});
    // A file may be empty, or have given nothing for once.
    if (result == kFieldOfNothing) result = read_proc_field(device::kBootParameters, kKey, digits, {});
    if (result == 0) return Answer::Given;
    const bool failed = result == kFieldUnreadable || (result == kFieldCannotOpen && !is_absent(errno));
    return failed ? Answer::Failed : Answer::None;
}

bool take_id_from_boot_parameters(Identity& board) {
    char digits[28] = {};
    const Answer answer = ask_boot_parameters(digits);
    note(board, kBootParameters, answer);
    if (answer != Answer::Given) return false;
    uint8_t id[MARL_HWID_SIZE] = {};
    store_le(id, hexadecimal(digits));
    take_id(board, id);
    return true;
}

// Up to 27 digits: the last 16 are the low half of the ID.
void take_packed_text(Identity& board, std::string_view text) {
    constexpr size_t kDigits = 16;  // of one 64-bit half
    char digits[28];
    copy_text(digits, sizeof digits, text);
    const size_t length = strlen(digits);
    const size_t leading = length > kDigits ? length - kDigits : 0;
    uint8_t id[MARL_HWID_SIZE] = {};
    store_le(id, hexadecimal(digits + leading));
    digits[leading] = '\0';
    store_le(id + sizeof(uint64_t), hexadecimal(digits));
    take_id(board, id);
    board.from_environment = true;
}

// An image that could not be loaded at the first look may be there now: its text decides the scheme.
bool take_id_from_environment(Identity& board) {
    char text[128] = {};
    const Answer answer = look_up_environment(kKey, text);
    note(board, kEnvironment, answer);
    if (answer != Answer::Given) return false;
    if (is_colon_separated(text)) {
        take_colon_separated(board, text);
    } else {
        take_packed_text(board, text);
    }
    return true;
}

void take_id_from_record(Identity& board) {
    constexpr uint32_t kMagic = 0x89ABCDEF;
    constexpr size_t kMagicSize = 4;
    const Fd file(open_file(kIdRecordPath, O_RDONLY));
    if (!file.is_open()) {
        note(board, kIdRecord, is_absent(errno) ? Answer::None : Answer::Failed);
        diag::err("open %s", kIdRecordPath);
        return;
    }
    uint8_t record[kMagicSize + MARL_HWID_SIZE];
    if (!read_whole(file.get(), record, sizeof record)) {
        note(board, kIdRecord, Answer::Failed);
        diag::err("read %s", kIdRecordPath);
        return;
    }
    if (const auto magic = load_le<uint32_t>(record); magic != kMagic) {
        diag::out("MAGIC error: %x\n", magic);
        return;
    }
    uint8_t* id = record + kMagicSize;
    const size_t used = id[7] >> 4;
    memset(id + used, 0, MARL_HWID_SIZE - used);
    memcpy(board.id, id, MARL_HWID_SIZE);
    board.found = true;
}

void take_raw_id(Identity& board) {
    if (take_id_from_boot_parameters(board)) return;
    diag::err("get hwid err\n");
    if (hwid_loaded == 1) {
        take_id(board, g_identification.environment_id);
        return;
    }
    if (take_id_from_environment(board)) return;
    diag::err("get_armboot_para\n");
    take_id_from_record(board);
}

struct DecodedField {
    BitField bits;
    uint16_t marl_hwinfo::*field;
};

constexpr DecodedField kDecoded[] = {
    {raw_id::kDspChip, &marl_hwinfo::dsp_chip},
    {raw_id::kBvideoChip, &marl_hwinfo::bvideo_chip},
    {raw_id::kFvideoChip, &marl_hwinfo::fvideo_chip},
    {raw_id::kVideoChannels, &marl_hwinfo::video_channel},
    {raw_id::kHdVer, &marl_hwinfo::hd_ver},
    {raw_id::kVideoInterface, &marl_hwinfo::video_interface},
    {raw_id::kAnalogAudioMode, &marl_hwinfo::analog_audio_mode},
    {raw_id::kStoreInterface, &marl_hwinfo::store_interface},
    {raw_id::kAlarmMode, &marl_hwinfo::alarm_mode},
    {raw_id::kWirelessInterface, &marl_hwinfo::wireless_interface},
    {raw_id::kHdEncode, &marl_hwinfo::hd_encode},
    {raw_id::kNetInterface, &marl_hwinfo::net_interface},
    {raw_id::kIntellegAnalyse, &marl_hwinfo::intelleg_analyse},
};

void decode_raw_id(Identity& board) {
    marl_hwinfo& info = board.info;
    for (const DecodedField& decoded : kDecoded) info.*decoded.field = raw_field(board.id, decoded.bits);
    if (info.video_channel == 0) info.video_channel = raw_id::kZeroChannels;
    const uint16_t channels = raw_field(board.id, raw_id::kAudioChannels);
    const auto mask = static_cast<uint16_t>(channels >= 16 ? 0xFFFF : (1U << channels) - 1);
    info.audio_in_channel = mask;
    info.audio_out_channel = mask;
}

const catalogue::ModelRule& rule_of_board(uint16_t code, const marl_hwinfo& info) {
    const auto rules = catalogue::model_rules();
    return *std::find_if(rules.begin(), rules.end(), [code, &info](const catalogue::ModelRule& rule) {
        return rule.code == code && catalogue::holds(rule.conditions[0], info) &&
               catalogue::holds(rule.conditions[1], info);
    });
}

void print_remark(catalogue::Remark remark) {
    if (remark == catalogue::Remark::BadHardwareVersion) {
        diag::out("[libmarl] Uncorrect hardware version!");
    } else if (remark == catalogue::Remark::UnsupportedHardwareVersion) {
        diag::error({module::kIdentity, "hwid_transform", 738}, "hardware version is not support\n");
    }
}

// The quoted text behind the first colon of a line of the product definition, empty when the line has none.
std::string_view device_text(const char* line) {
    if (strstr(line, "Device") == nullptr) return {};
    const char* colon = strchr(line, ':');
    const char* first = colon != nullptr ? strchr(colon, '"') : nullptr;
    if (first == nullptr) return {};
    const char* last = strrchr(first, '"');
    return last > first ? std::string_view(first + 1, static_cast<size_t>(last - first - 1))
                        : std::string_view();
}

Answer read_definition(char* model) {
    const Fd file(open_file(kDefinitionPath, O_RDONLY));
    if (!file.is_open()) {
        const Answer answer = is_absent(errno) ? Answer::None : Answer::Failed;
        diag::err("open %s \n", kDefinitionPath);
        return answer;
    }
    LineReader reader(file.get());
    char line[128];
    while (reader.next(line, sizeof line) && !reader.failed()) {
        const std::string_view device = device_text(line);
        if (device.empty()) continue;
        copy_text(model, MARL_MODEL_SIZE, device);
        return Answer::Given;
    }
    return reader.failed() ? Answer::Failed : Answer::None;
}

bool take_model_from_definition(Identity& board, char* model) {
    const Answer answer = read_definition(model);
    note(board, kDefinition, answer);
    return answer == Answer::Given;
}

void name_model(Identity& board) {
    const uint16_t code = raw_field(board.id, raw_id::kProductCode);
    const catalogue::ModelRule& rule = rule_of_board(code, board.info);
    char* model = board.info.product_model;
    const bool in_file = (catalogue::kDefinedByFile >> code & 1U) != 0;
    if (!in_file || !take_model_from_definition(board, model)) {
        copy_text(model, MARL_MODEL_SIZE, rule.model);
        print_remark(rule.remark);
    } else if (code == catalogue::kRecorderCode) {
        // The newline belongs to the names of these recorders, as far as it fits.
        char text[2 * MARL_MODEL_SIZE];
        snprintf(text, sizeof text, "QZ-%s\n", model);
        copy_text(model, MARL_MODEL_SIZE, text);
    }
    board.info.product_category = rule.category;
}

Identity identify() {
    Identity board{};
    char text[128] = {};
    errno = 0;
    const Answer answer = look_up_environment(kKey, text);
    note(board, kEnvironment, answer);
    if (answer != Answer::Given) {
        diag::system_error("get hwid \n", errno);
    } else if (!is_colon_separated(text)) {
        diag::line("[libmarl] no new hwid scheme!");
    } else {
        take_colon_separated(board, text);
    }
    if (!board.colon_separated) take_raw_id(board);
    if (board.colon_separated) return board;
    decode_raw_id(board);
    name_model(board);
    return board;
}

// Other threads may be reading. Each number changes at once from what it was to what it is; the name matches
// nothing while its end changes, because its first character goes first and comes last. The board has one
// processor, so the order is the compiler's to keep.
void publish(const Identity& board) {
    char* model = HWINFO.product_model;
    const std::atomic_ref<char> first(model[0]);
    first.store('\0', std::memory_order_relaxed);
    std::atomic_signal_fence(std::memory_order_seq_cst);
    memcpy(model + 1, board.info.product_model + 1, sizeof HWINFO.product_model - 1);
    memcpy(reinterpret_cast<char*>(&HWINFO) + kNumbers, reinterpret_cast<const char*>(&board.info) + kNumbers,
           sizeof HWINFO - kNumbers);
    memcpy(hwid, board.id, sizeof hwid);
    product_type = board.type;
    product_code = board.code;
    first.store(board.info.product_model[0], std::memory_order_release);
    product_model_ptr = model;
    if (board.from_environment) {
        hwid_loaded = 1;
        memcpy(g_identification.environment_id, board.id, sizeof board.id);
    }
    g_identification.found = board.found;
    g_identification.is_open = board.failed != 0;
}

}  // namespace

void hwid_transform() {
    const MutexLock lock(g_identification.lock);
    publish(identify());
}

int hwid_retry() {
    const MutexLock lock(g_identification.lock);
    if (!g_identification.is_open) return 0;
    const Identity board = identify();
    // What a source said before is not given up for the silence of another.
    if (board.failed == 0 || (board.found && !g_identification.found)) publish(board);
    return board.failed == 0 ? 0 : -1;
}

int read_product_definition(char* buf) {
    if (buf == nullptr) return -1;
    memset(buf, 0, strnlen(buf, MARL_MODEL_SIZE));
    return read_definition(buf) == Answer::Given ? 0 : -1;
}
