#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <iterator>

#include "base/diag.h"
#include "base/fd.h"
#include "base/text.h"
#include "libmarl/modem.h"
#include "modem/models.h"
#include "modem/record.h"
#include "modem/state.h"
#include "modem/usb_list.h"

static_assert(offsetof(Usb3gModule, manufacturer) == 0);
static_assert(offsetof(Usb3gModule, product) == 32);
static_assert(offsetof(Usb3gModule, version) == 64);
static_assert(offsetof(Usb3gModule, speed) == 80);
static_assert(offsetof(Usb3gModule, vendor_id) == 88);
static_assert(offsetof(Usb3gModule, product_id) == 104);
static_assert(sizeof(Usb3gModule) == 160);

namespace {

using namespace marl;

// Written by check_usb_hub_model(), read by the discovery; never cleared.
struct {
    bool hub = false;
} constinit g_discovery;

// The last of these stands for all vendors without a row.
struct Vendor {
    char id[5];
    int modem_type;
};

constexpr Vendor kVendors[] = {
    {"19d2", 1}, {"12d1", 2}, {"1ab7", kThirdVendorModem}, {"16d5", kUnknownModem}};
constexpr int kOtherVendorModem = 4;

struct KnownModule {
    char manufacturer[23];
    char vendor_id[5];
    char product_id[5];
};

constexpr KnownModule kKnownModules[] = {
    {"HUA?WEI TECHNOLOGIES", "12d1", "1001"}, {"ZTE, Incorporated", "19d2", "ffed"},
    {"ZTE, Incorporated", "19d2", "fff1"},    {"Qualcomm, Incorporated", "19d2", "0026"},
    {"HUAWEI Technology", "12d1", "1001"},    {"AnyDATA Corporation", "16d5", "6502"},
    {"Motorola Inc.", "22b8", "4264"},
};

// Where the list has the texts of the record. Names contain blanks and take the rest of their line.
struct Source {
    char kind;
    std::string_view key;
    ModuleText text;
    bool rest_of_line;
};

constexpr Source kSources[] = {
    {'T', "Spd=", text_of<&Usb3gModule::speed>, false},
    {'D', "Ver=", text_of<&Usb3gModule::version>, false},
    {'P', "Vendor=", text_of<&Usb3gModule::vendor_id>, false},
    {'P', "ProdID=", text_of<&Usb3gModule::product_id>, false},
    {'S', "Manufacturer=", text_of<&Usb3gModule::manufacturer>, true},
    {'S', "Product=", text_of<&Usb3gModule::product>, true},
};

// The lines of a block that identify its device: version, numbers, manufacturer and product.
constexpr int kIdentityLines = 4;

// The root hub's block, the one after it, and those of a device or two behind a hub.
constexpr size_t kBlocksWithoutHub = 2;
constexpr size_t kBlocksWithHub = 4;
constexpr size_t kThirdBlock = 2;
constexpr int kNoPort = -1;

struct Block {
    int port = kNoPort;
    int identity_lines = 0;
    bool complete = false;
    Usb3gModule module = {};
};

// Takes what the record wants of a line; whether there was anything.
bool take_texts(std::string_view line, Usb3gModule& module) {
    bool taken = false;
    for (const Source& source : kSources) {
        const auto value = line.starts_with(source.kind) ? text_after(line, source.key) : std::nullopt;
        if (!value) continue;
        const std::span<char> text = source.text(module);
        const size_t length = source.rest_of_line ? value->size() : value->find(' ');
        copy_text(text.data(), text.size(), first_of(*value, length));
        taken = true;
    }
    return taken;
}

// A block is complete with its first interface, or with a line that tells nothing once the
// device is identified.
void take_line(std::string_view line, Block& block) {
    if (block.complete) return;
    if (line.starts_with('I') || line.starts_with('T')) {
        block.complete = line.starts_with('I') || block.identity_lines >= kIdentityLines;
    } else if (take_texts(line, block.module)) {
        ++block.identity_lines;
    } else {
        block.complete = block.identity_lines >= kIdentityLines;
    }
}

void begin_block(std::string_view line, Block& block) {
    block.port = number_after(line, "Port=").value_or(kNoPort);
    take_texts(line, block.module);
}

// Reads the first blocks of the list; how many there were, or nothing when it cannot be read.
std::optional<size_t> read_blocks(int fd, std::span<Block> blocks) {
    UsbLines lines(fd);
    size_t count = 0;
    while (lines.next()) {
        if (count > 0) take_line(lines.text(), blocks[count - 1]);
        if (!lines.text().starts_with('T')) continue;
        if (count == blocks.size()) break;
        begin_block(lines.text(), blocks[count++]);
    }
    if (lines.failed()) return std::nullopt;
    return count;
}

// The block of the modem, null when there is none.
const Block* modem_block(std::span<const Block> blocks) {
    if (!g_discovery.hub) return blocks.size() == kBlocksWithoutHub ? &blocks.back() : nullptr;
    if (blocks.size() <= kThirdBlock) return nullptr;
    const Block& third = blocks[kThirdBlock];
    if (third.port == 0) return &third;
    if (blocks.size() == kBlocksWithHub) return &blocks.back();
    return modem_models::has_modem_on_any_port() ? &third : nullptr;
}

template <size_t kSize>
std::string_view text_in(const char (&field)[kSize]) {
    return field_text(field, kSize);
}

}  // namespace

bool marl::modem_is_behind_hub() { return g_discovery.hub; }

int check_usb_hub_model() {
    if (!modem_models::is_among(modem_models::kHubBoards)) return -1;
    g_discovery.hub = true;
    return 0;
}

int find_3g_usb_device(Usb3gModule* module) {
    if (module == nullptr) return -1;
    *module = {};
    const Fd list(open_file(kUsbDeviceList, O_RDONLY));
    Block blocks[kBlocksWithHub];
    const std::span<Block> wanted(blocks, g_discovery.hub ? kBlocksWithHub : kBlocksWithoutHub);
    const auto count = list.is_open() ? read_blocks(list.get(), wanted) : std::nullopt;
    if (!count) {
        diag::library_system_error("fopen", errno);
        return -1;
    }
    const Block* block = modem_block(wanted.first(*count));
    if (block == nullptr || !block->complete) return -1;
    *module = block->module;
    return 1;
}

int find_and_identify_3g(Usb3gModule* module) {
    check_usb_hub_model();
    if (find_3g_usb_device(module) != 1) return -1;
    identify_3g_modem(module);
    return 0;
}

int identify_3g_modem(const Usb3gModule* module) {
    if (module == nullptr) return -1;
    const std::string_view id = text_in(module->vendor_id);
    const auto* vendor = std::find_if(std::begin(kVendors), std::end(kVendors),
                                      [&](const Vendor& known) { return known.id == id; });
    g_modem_type = vendor != std::end(kVendors) ? vendor->modem_type : kOtherVendorModem;
    return g_modem_type;
}

int lookup_3g_module(const Usb3gModule* module) {
    if (module == nullptr) {
        diag::err("usbModule Param NULL");
        return -1;
    }
    int row = 0;
    for (const KnownModule& known : kKnownModules) {
        if (text_in(module->manufacturer) == known.manufacturer &&
            text_in(module->vendor_id) == known.vendor_id &&
            text_in(module->product_id) == known.product_id) {
            return row;
        }
        ++row;
    }
    return -1;
}
