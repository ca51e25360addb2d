// What the microcontroller and the co-processor answer, and the words that other processes write.
#include <fcntl.h>
#include <setjmp.h>

#include <cerrno>
#include <map>

#include "base/bytes.h"
#include "base/crc32.h"
#include "base/fd.h"
#include "board/dm365.h"
#include "daemon/dm365_link.h"
#include "daemon/heartbeat.h"
#include "libmarl/flash.h"
#include "libmarl/mcu.h"
#include "libmarl/system.h"
#include "libmarl/upgrade_flag.h"
#include "mcu/link.h"
#include "mcu/reader.h"
#include "mcu/ring.h"
#include "mcu/ring_table.h"
#include "target.h"

namespace {

namespace dm365 = marl::dm365;

// A library call on a device, from its opening to its end.
template <typename Call>
auto with_device(const char* path, Call call) {
    memory::put(path, "", memory::Kind::Device);
    const int fd = marl::open_file(path, O_RDWR);
    return call(fd);
}

struct {
    std::string bytes;
    size_t at, step;
} g_stream;

// The frames of a stream by command, plainly: from A0 to 0A, FF left out.
std::map<uint32_t, std::string> frames(const std::string& stream) {
    std::map<uint32_t, std::string> found;
    std::string frame;
    for (const char byte : stream) {
        if (frame.empty() ? byte != '\xA0' : byte == '\xFF') continue;
        frame += byte;
        const bool ends_here = byte == '\x0A' && frame.size() >= MCU_FRAME_SIZE;
        const auto command = static_cast<uint8_t>(frame[frame.size() > 1 ? 1 : 0]);
        if (ends_here && frame.size() == MCU_FRAME_SIZE)
            found[command == MCU_MOUSE_ALTERNATE ? MCU_MOUSE : command] += frame;
        if (ends_here || frame.size() == 16) frame.clear();
    }
    return found;
}

struct {
    std::string answers, payload;
    size_t given;
    uint32_t address, last;
    int frames;
} g_chip;

uint32_t next_answer() {
    constexpr uint32_t kAnswers[] = {0, 0x55aa, 0x7788, 0x99bb, 0xffff, 0x6984, 0x2468, 1};
    return g_chip.given < g_chip.answers.size() ? kAnswers[g_chip.answers[g_chip.given++] & 7] : 0;
}

int answer(unsigned long request, void* argument) {
    if (request == dm365::kQueryVersion) {
        g_chip.answers.copy(static_cast<char*>(argument), sizeof(dm365::VersionRecord));
    } else if (request == dm365::kReadAck || request == dm365::kReadStatus || request == dm365::kQueryAlive) {
        const uint32_t word = next_answer();
        memcpy(argument, &word, sizeof word);
        if (request == dm365::kReadAck) g_chip.last = word;
    }
    return 0;
}

bool is_end() { return g_chip.payload.starts_with("upgrade-end"); }

ssize_t take_frame(const void* data, size_t size) {
    const auto* frame = static_cast<const uint8_t*>(data);
    const std::string payload = is_end() ? "" : g_chip.payload;
    const auto word = [&](size_t at) { return marl::load_le<uint32_t>(frame + at); };
    require(size == 16 + payload.size() && ++g_chip.frames <= 30);
    require(word(0) == g_chip.address && word(4) == g_chip.payload.size() &&
            word(12) == (is_end() ? 0x1234 : 0));
    require(is_end() || word(8) == marl::crc32({frame + 16, size - 16}));
    require(memcmp(frame + 16, payload.data(), payload.size()) == 0);
    errno = EIO;
    return next_answer() != 1 ? static_cast<ssize_t>(size) : -1;
}

constexpr const char* kFlag = "/tmp/upgrade_ing";
constexpr int kSteps = 40;  // of neighbours; none of the library's counters goes on for longer
constexpr const char* kBeat = "/tmp/mediaguard_to_sentrel";

std::string as_text(uint32_t word) { return {reinterpret_cast<const char*>(&word), sizeof word}; }

uint32_t word_of(const char* path) {
    std::string text = memory::text_of(path);
    text.resize(sizeof(uint32_t));
    return marl::load_le<uint32_t>(reinterpret_cast<const uint8_t*>(text.data()));
}

// What bears a name after a neighbour's doing.
enum class Bearer { File, Nothing, Intruder };

Bearer disturb(const char* path, uint8_t how, uint32_t word, Bearer before) {
    const std::string text = as_text(word).substr(0, how / 8 % 5);
    if (how % 8 < 2) memory::put(path, "", how % 8 == 0 ? memory::Kind::Directory : memory::Kind::Link);
    if (how % 8 < 2) return Bearer::Intruder;
    if (how % 8 == 2) memory::remove(path);
    if (how % 8 == 3) memory::put(path, text);
    if (how % 8 > 3 && before == Bearer::File) memory::text_of(path) = how % 8 == 4 ? text : as_text(word);
    return how % 8 == 2 ? Bearer::Nothing : how % 8 == 3 ? Bearer::File : before;
}

jmp_buf g_reboot;

// Whether a check ends in a reboot, from which there is no return.
bool reboots() {
    if (setjmp(g_reboot) != 0) return true;
    require(sentrel::monitor_mediaguard() == 0);
    return false;
}

}  // namespace

TARGET(mcu_stream) {
    const uint8_t how = input.byte();
    for (uint32_t command = 0; command <= MCU_COMMAND_MAX; ++command) {
        if (initSpiUtilDev(command) == nullptr) continue;
        const marl::mcu::HeldRing ring(command);
        ring.get().in = ring.get().out = UINT32_MAX - how;  // which soon pass their end, and that of the ring
    }
    g_stream = {input.rest(), 0, 1 + how % 9U};
    memory::answers.read = [](void* data, size_t size) -> ssize_t {
        auto& [bytes, at, most] = g_stream;
        const size_t count = bytes.copy(static_cast<char*>(data), std::min(size, most), at);
        at += count;
        errno = EIO;
        return count > 0 ? static_cast<ssize_t>(count) : -1;
    };
    with_device("/dev/mcu", [](intptr_t fd) {
        const marl::Fd closed(static_cast<int>(fd));
        return marl::mcu::thread_spi_read(reinterpret_cast<void*>(fd));
    });
    auto wanted = frames(g_stream.bytes.substr(0, g_stream.bytes.size() / 8 * 8));  // read in blocks
    for (uint32_t command = 0; command <= MCU_COMMAND_MAX; ++command) {
        if (command == MCU_MOUSE_ALTERNATE) continue;
        const marl::mcu::HeldRing ring(command);
        std::string got(marl::fifo_level(ring.get()), '\0');
        marl::fifo_get(ring.get(), reinterpret_cast<uint8_t*>(got.data()), MCU_RING_SIZE);
        require(got == wanted[command].substr(0, MCU_RING_SIZE / MCU_FRAME_SIZE * MCU_FRAME_SIZE));
    }
}

TARGET(acknowledgements) {
    const uint32_t address = input.byte();
    const std::string answers = input.line();
    g_chip = {answers, input.rest(), 0, address, 0, 0};
    memory::answers.control = answer;
    memory::answers.write = take_frame;
    const auto* payload = reinterpret_cast<const uint8_t*>(g_chip.payload.data());
    const auto size = static_cast<uint32_t>(g_chip.payload.size());
    const int result = with_device(dm365::kLinkDevice, [&](int fd) {
        const marl::Fd closed(fd);
        uint32_t word = 0;
        sentrel::dm365_spi_query(fd, &word, dm365::kQueryAlive);
        sentrel::dm365_spi_query(fd, &word, dm365::kQueryVersion);
        return dm365_upgrade_write(fd, payload, size, address, dm365::kUpgrading);
    });
    const bool is_taken = g_chip.last == 0x55aa || g_chip.last == 0x99bb;
    require(is_end() || result == -1 || (result == static_cast<int>(size) && is_taken));
    SubModuleInfo module = {};
    int count = 0;
    if (getSubModules(&module, &count) < 0) return;
    require(count == 1 && ends(module.name) && ends(module.version) && ends(module.second_version));
}

TARGET(upgrade_flag) {
    memory::put(kFlag, as_text(0));
    require(set_upgrade_map() == 0 && clear_upgrade_map() == 0 && check_upgrade_map() == 0);
    Bearer bearer = Bearer::File;
    int held = 0;
    for (int steps = 0; input.any() && steps < kSteps; ++steps) {
        const uint8_t how = input.byte();
        const Bearer before = std::exchange(bearer, disturb(kFlag, how, input.byte() % 3, bearer));
        const bool is_lost = bearer == Bearer::Nothing && before == Bearer::File;
        const int refused = bearer == Bearer::Intruder ? -1 : 0;
        const int flag = check_upgrade_map();
        if (bearer == Bearer::Intruder) require(flag == -1);
        if (bearer == Bearer::File) held = word_of(kFlag) == 1 ? 1 : 0;
        if (bearer == Bearer::File || is_lost) require(flag == held);  // a file that has lost its name counts
        const auto change = how < 128 ? set_upgrade_map : how < 192 ? init_upgrade_map : clear_upgrade_map;
        if (how < 64 || (how >= 192 && bearer == Bearer::Nothing)) continue;
        held = refused == 0 && how < 128 ? 1 : 0;
        require(change() == refused && check_upgrade_map() == (refused == 0 ? held : -1));
        if (bearer == Bearer::Nothing) bearer = Bearer::File;
    }
}

TARGET(heartbeat) {
    memory::put(kFlag, as_text(0));
    memory::put(kBeat, as_text(0));
    memory::answers.reboot = [] { longjmp(g_reboot, 1); };
    for (const uint32_t word : {100U, 101U, 102U}) {
        memory::text_of(kBeat) = as_text(word);
        reboots();  // or not, by what was before
    }
    reboots();
    uint32_t held = 102, last = 102, unchanged = 1, zeros = 0;
    Bearer bearer = Bearer::File;
    for (int steps = 0; input.any() && steps < kSteps; ++steps) {
        const uint8_t how = input.byte();
        bearer = disturb(kBeat, how, input.byte() % 4, bearer);
        if (bearer == Bearer::File) held = word_of(kBeat);
        const bool counts = bearer != Bearer::Intruder;
        zeros = held != 0 && counts ? 0 : zeros + (counts ? 1 : 0);
        if (counts && held != 0) unchanged = std::exchange(last, held) == held ? unchanged + 1 : 0;
        require(reboots() == (counts && (held == 0 ? zeros > 5 : unchanged > 3)));
    }
}
