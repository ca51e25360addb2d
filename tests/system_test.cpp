// Board services: shell commands, /dev/mem, statistics and summaries.
#include <libmarl.h>

#include <cstring>

#include "helpers/board.h"

// Shows outside of a child's journal, too.
extern "C" void sync() noexcept { fputs("sync", stderr), board::behind(sync, "sync")(); }

namespace {

using namespace board;

constexpr uint32_t kRegisters = 0x01C40000;
constexpr uint32_t kPhyControl = kRegisters + 0x34;
constexpr uint32_t kMarker = 0x17FFC;

// The board's memory is a file that tests look into.
void put_memory() {
    write_file("/dev/mem", "");
    std::filesystem::resize_file(path_of("/dev/mem"), kRegisters + 0x2000);
}
void set_memory(uint32_t address, uint32_t value) {
    std::fstream file(path_of("/dev/mem"), std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(address).write(reinterpret_cast<const char*>(&value), sizeof value);
}
uint32_t memory_at(uint32_t address) {
    uint32_t value = 0;
    std::ifstream(path_of("/dev/mem")).seekg(address).read(reinterpret_cast<char*>(&value), sizeof value);
    return value;
}

TEST(UsbPhy, IsSwitchedThroughItsRegister) {
    const auto set = [](int state) { return usb_phy_set_state(MARL_SYSTEM_MODULE_BASE, state); };
    load("cmos 1 01\nfault /dev/mem open 3 EIO");
    put_memory();
    set_memory(kPhyControl, 0xAB00);
    EXPECT_EQ(Ints({mem_close(), get_restart_kind(), set(2), set(0), mem_open()}), Ints({-1, 2, -1, 0, 0}));
    EXPECT_EQ(sim::now(), 0.0001);
    EXPECT_EQ(memory_at(kPhyControl), 0xAB01U);
    for (const auto& [clock, took] : {std::pair(0xA901U, 0.001), {0xFE00U, 0.006}}) {
        // The clock is good at the first look, or not at the sixth.
        set_memory(kPhyControl, clock);
        const double start = sim::now();
        EXPECT_EQ(set(1), 0);
        EXPECT_EQ(memory_at(kPhyControl), clock & 0xFF00U);
        EXPECT_NEAR(sim::now() - start, took, 0.0001);
    }
    EXPECT_TRUE(journal_follows({"err \"state must be 0 or 1\\n\"", "err \"USB_PPHY reset timeout\\n\""}));
    EXPECT_EQ(count("/dev/mem mmap"), 2U) << "the marker, and the registers once";
    EXPECT_EQ(Ints({mem_close(), mem_open(), set(0), mem_close(), mem_close()}), Ints({0, -1, 0, 0, -1}));
    EXPECT_EQ(counts({"/dev/mem mmap", "/dev/mem close"}), Ints(2, 3));
}

struct RestartCase {
    const char* script;
    uint32_t marker, marker_after;
    int kind;
};

class Restart : public testing::TestWithParam<RestartCase> {};

TEST_P(Restart, IsToldOnceAndMarked) {
    const auto& [script, marker, marker_after, kind] = GetParam();
    load("");
    put_memory();
    set_memory(kMarker, marker);
    run(std::string("cmos 1 01\n") + script);
    EXPECT_EQ(get_restart_kind(), kind);
    EXPECT_TRUE(journal_follows({"/dev/misc/rtc read 1", "/dev/misc/rtc write 2: 01 01"}));
    EXPECT_EQ(seen("out \"OPEN /dev/mem error\\n\"") || seen("out \"mem failed\\n\""), kind < 0);
    EXPECT_EQ(memory_at(kMarker), marker_after);
    EXPECT_EQ(count("/dev/mem mmap"), count("/dev/mem close"));
    sim::clear_journal();
    EXPECT_EQ(Ints({get_restart_kind(), mem_close()}), Ints({kind, -1}));
    EXPECT_EQ(sim::journal(), "");
}

constexpr uint32_t kSet = 0x44444351;
constexpr RestartCase kRestarts[] = {
    {"cmos 1 00", 0, 0, 0},        {"cmos 1 ff", 0, 0, 255}, {"fault /dev/mem mmap 1 ENOMEM", 0, 0, -1},
    {"cmos 1 01", 0, kSet, 2},     {"", kSet, kSet, 1},      {"fault /dev/misc/rtc read 1 EIO", 0, kSet, 2},
    {"missing /dev/mem", 0, 0, -1}};
INSTANTIATE_TEST_SUITE_P(Kinds, Restart, testing::ValuesIn(kRestarts));

TEST(ArmClock, FromTheBootVariableOrTheRegisters) {
    load("env a=1\nfault /dev/mem mmap 4 ENOMEM");
    put_memory();
    set_memory(kRegisters + 0xD10, 18);
    set_memory(kRegisters + 0xD20, 1);
    EXPECT_EQ(Ints({read_armrate(), get_arm_rate()}), Ints({-1, 432}));
    EXPECT_TRUE(journal_follows({"out \"[libmarl] armrate = 432000000\\n\""}));
    EXPECT_EQ(Ints({__set_armboot_para("armrate", "297"), get_arm_rate(), __set_armboot_para("armrate", "1"),
                    get_arm_rate()}),
              Ints({0, 297, 0, 1}));
    int fd = -1;
    uint32_t word = 0;
    ASSERT_EQ(DRV_mMapOpen(&fd), 0);
    char* const map = static_cast<char*>(DRV_mMap(fd, kRegisters, 4096));
    EXPECT_EQ(Ints({DRV_mUnMap(map, 4096), DRV_mUnMap(map + 1, 1), seen("|DRV_mUnMap|"), DRV_mMapClose(fd),
                    readReg(&word, &word, &word, &word), readReg(&word, &word, &word, &word)}),
              Ints({0, -1, 1, 0, 0, -1}));
    EXPECT_EQ(counts({"/dev/mem open", "/dev/mem close"}), Ints(2, 4));
    EXPECT_EQ(scenario::read_file("/proc/self/maps").find("/dev/mem"), std::string::npos);
    run("missing /dev/mem");
    EXPECT_EQ(Ints({__set_armboot_para("armrate", "0"), get_arm_rate(), readReg(&word, &word, &word, &word),
                    DRV_mMapOpen(&fd)}),
              Ints({0, 0, -1, -1}));
}

TEST(Summary, OfTheSystem) {
    load("env armrate=400\nenv appauto=1\nenv ID=SN-0042");
    memset(HWINFO.product_model, 'm', sizeof HWINFO.product_model);
    HWINFO.dsp_chip = 6, HWINFO.hd_ver = 0xA, HWINFO.store_interface = 3, product_type = 7;
    SystemInfo info;
    memset(&info, 0x55, sizeof info);
    EXPECT_EQ(Ints({getSystemInfo(&info), info.appauto, info.type_flag, info.no_storage, info.bandWidth}),
              Ints({0, 1, 0, 0, 0x55555555}))
        << "no bandwidth, as the clock is not known";
    EXPECT_EQ(Strings({info.chip, info.id, info.type, info.hw_version}),
              Strings({"dm368", "SN-0042", std::string(31, 'm'), "1.20"}));
    EXPECT_TRUE(journal_follows({"out \"\\e[0;32;32m[libmarl] At the start of getSystemInfo\\n\\e[m\"",
                                 "out \"[libmarl] armrate = 400\\n\"",
                                 "out \"\\e[0;32;31m[libmarl] ERROR (src/misc/sys|getSystemInfo|",
                                 "out \"[libmarl] @@@@ buf = SN-0042\\n\""}));
    HWINFO.hd_ver = HWINFO.fvideo_chip = 1, HWINFO.dsp_chip = 8, HWINFO.store_interface = 0;
    EXPECT_EQ(__set_armboot_para("ID", "000000000000000000"), 0);
    EXPECT_EQ(getSystemInfo(&info), -1) << "without an ID it is the MAC address, and there is no network";
    EXPECT_EQ(__set_armboot_para("ID", "0000000000000000001"), 0) << "an ID of its own";
    Ints found;  // by the ARM clock the bandwidth, by the product type whether it is told apart
    for (const auto& [rate, type] :
         {std::pair{"216", 2}, {"297", 6}, {"270", 3}, {"300", 17}, {"432", 25}, {"351", 19}, {"486", 7}}) {
        product_type = type;
        EXPECT_EQ(Ints({__set_armboot_para("armrate", rate), getSystemInfo(&info)}), Ints(2, 0));
        found.insert(found.end(), {info.bandWidth, info.type_flag});
    }
    EXPECT_EQ(found, Ints({12, 0, 24, 0, 16, 0, 24, 0, 32, 0, 24, 0, 32, 1}));
    HWINFO.fvideo_chip = 2;
    EXPECT_EQ(Ints({getSystemInfo(&info), info.type_flag, info.no_storage, get_device_id(info.id, 0)}),
              Ints({0, 0, 1, -1}));
    EXPECT_EQ(Strings({info.chip, info.id}), Strings({"unkown", "0000000000000000001"}));
    EXPECT_EQ(Ints({get_device_id(info.id, 1), info.id[0]}), Ints(2, 0));
    // The modem switch stays silent on product types that the summary has seen.
    strcpy(HWINFO.product_model, "IPC-KW1");
    EXPECT_EQ(power_3g_on(), -1);
    for (const int type : {22, 24, 25}) {
        product_type = type;
        EXPECT_EQ(Ints({getSystemInfo(&info), power_3g_on()}), Ints({0, type == 25 ? -1 : 0}));
    }
}

TEST(Summary, OfTheSubModules) {
    SubModuleInfo modules[2];
    // The result, how many there are, and the status of the last.
    const auto list = [&](const char* model) {
        int number = 0;
        memset(modules, 0x55, sizeof modules);
        strcpy(HWINFO.product_model, model);
        HWINFO.dsp_chip = 6, HWINFO.hd_ver = 3;
        const int result = getSubModules(modules, &number);
        return Ints({result, number, number > 0 ? modules[number - 1].status : -1});
    };
    load("");
    EXPECT_EQ(list("IPC-KL7")[0], -1);
    EXPECT_EQ(list("TRV-A2-I"), Ints({0, 1, 1})) << "no co-processor";
    // The driver's requests fail on a plain file, and the modules are listed all the same.
    run("file /dev/dm6480\nfile /dev/ad9920_dev");
    EXPECT_EQ(list("TRV-A1-I"), Ints({0, 1, 0xFF})) << "the low 8 bits of the request's result";
    EXPECT_EQ(Strings({modules[0].name, modules[0].version}), Strings({"dm648", "1.3"}));
    EXPECT_EQ(list("TRV-A6-S"), Ints({0, 2, 1}));
    EXPECT_STREQ(modules[1].name, "FPGA");
    EXPECT_EQ(list("TRV-A5-S")[1], 2);
    EXPECT_EQ(Ints({getSubModules(nullptr, nullptr), getSubModules(modules, nullptr)}), Ints(2, -1));
    EXPECT_TRUE(journal_follows({"/dev/dm6480 open r", "/dev/dm6480 close", "/dev/ad9920_dev open r",
                                 "/dev/ad9979_dev open r -> ENOENT", "out \"modules is null point"}));
    const std::string failed = "out \"\\e[0;32;31m[libmarl] ERROR (src/misc/sys|getSubModules|";
    EXPECT_EQ(counts({failed, "out \"modules is null"}), Ints({3, 1}));
    write_file("/mnt/mtd/dm365_version",
               std::string(32, 'n') + std::string(16, 'v') + "V2" + std::string(14, '\0'));
    EXPECT_EQ(list("IPC-KL7")[1], 1);
    EXPECT_EQ(Strings({modules[0].name, modules[0].version, modules[0].second_version}),
              Strings({std::string(31, 'n'), std::string(15, 'v'), "V2"}))
        << "terminated";
    write_file("/mnt/mtd/dm365_version", "too short");
    EXPECT_EQ(list("IPC-KL7"), Ints({0, 0, -1}));
}

// The model, its storage interface, which writes to lines fail, and what is reset besides the board.
class Reboot : public testing::TestWithParam<std::tuple<const char*, uint16_t, const char*, Steps>> {};

TEST_P(Reboot, ComesBackOnlyWhereTheResetLineDoesNotMove) {
    const auto& [model, storage, failing, steps] = GetParam();
    load(std::string("file /proc/net/wireless eth2: 0\nfault /dev/misc/gpio write ") + failing + " EIO");
    EXPECT_EXIT(sync_and_exit(), testing::ExitedWithCode(0), "sync");
    strcpy(HWINFO.product_model, model);
    HWINFO.store_interface = storage;
    EXPECT_EQ(sys_reboot(), -1);
    EXPECT_TRUE(
        scenario::Journal(sim::journal()).follows(at(0.1, {"out \"[libmarl] skip sync\\n\""}) + steps));
    EXPECT_EQ(counts({"sync", "/dev/misc/gio_expander write 2: 06"}), Ints(2, 0)) << "disks, and no modem";
}

const Strings kEnd = {"/dev/misc/rtc write 2: 01 00", "/dev/misc/gpio write 2 -> EIO"};
INSTANTIATE_TEST_SUITE_P(
    Models, Reboot,
    testing::Values(std::tuple("IPC-KA2", 2, "3+",
                               at(1.2, {"/dev/misc/gio_expander write 2: 01 01"}) + at(1.25, kEnd)),
                    std::tuple("IPC-KL7", 3, "5+",
                               at(1.2, {"/dev/misc/gpio write 2: 30 00"}) +
                                   at(1.22, {"/dev/misc/gpio write 2: 30 01"}) + at(1.72, kEnd))));

}  // namespace
