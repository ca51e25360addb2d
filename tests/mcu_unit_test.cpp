// The microcontroller link from its bytes to its calls, and the halt and the signal output that stand on it.
#include <libmarl/halt.h>
#include <libmarl/hwinfo.h>
#include <libmarl/mcu.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <deque>
#include <functional>

#include "helpers/board.h"
#include "mcu/ring.h"
#include "mcu/ring_table.h"

namespace {

using namespace marl;
using namespace board;
using Bytes = std::vector<uint8_t>;

constexpr uint8_t kFiller = 0xFF;

std::string hex(const Bytes& bytes) {
    constexpr const char* kDigits = "0123456789abcdef";
    std::string text;
    for (const uint8_t byte : bytes) text += {kDigits[byte >> 4], kDigits[byte & 15], ' '};
    return text;
}

// A board with the device, and the rings of these commands.
void load_link(const std::string& script = "", const std::vector<uint32_t>& commands = {}) {
    load("present /dev/mcu\n" + script);
    for (const uint32_t command : commands) ASSERT_NE(initSpiUtilDev(command), nullptr);
}

// An ERROR line of a function, whatever its line number.
bool printed_error(const std::string& function, const std::string& text) {
    return seen("out \"\\e[0;32;31m[libmarl] ERROR (src/mouse/SpiUtil|" + function + "|") &&
           seen(")" + text + "\\n\\e[m\"");
}

void say(const Bytes& bytes) { sim::run(("mcu say " + hex(bytes)).c_str()); }

Bytes report(uint8_t command, uint8_t value) { return {0xA0, command, 0, value, 0, 0, 0x0A, kFiller}; }

// Runs all bodies at once, on threads of the simulated board. They are waited for asleep: a thread that only
// joins would keep the board's time from going on.
void run_together(const std::vector<std::function<void()>>& bodies) {
    std::atomic<size_t> over{0};
    std::deque<std::function<void()>> tasks;
    std::vector<pthread_t> threads;
    pthread_attr_t attributes;  // tell these threads from a sanitizer's
    pthread_attr_init(&attributes);
    const auto start = [](void* task) -> void* {
        (*static_cast<std::function<void()>*>(task))();
        return nullptr;
    };
    for (const auto& body : bodies) {
        auto& task = tasks.emplace_back([&] { body(), ++over; });
        ASSERT_EQ(pthread_create(&threads.emplace_back(), &attributes, start, &task), 0);
    }
    while (over < bodies.size()) usleep(10'000);
    for (const pthread_t thread : threads) pthread_join(thread, nullptr);
}

TEST(Link, UnknownCommandsAndBrokenFramesAreDropped) {
    load_link("fault thread pthread_create 1 EAGAIN", {MCU_MOUSE_ALTERNATE});
    uint8_t frame[MCU_FRAME_SIZE] = {};
    EXPECT_EQ(Ints({mcu_open(), mcu_write(frame, 0), mcu_write(nullptr, MCU_FRAME_SIZE)}), Ints(3, -1));
    EXPECT_TRUE(initSpiUtilDev(26) == nullptr && deinitSpiUtilDev(26) == -1 && deinitSpiUtilDev(25) == 0);
    EXPECT_EQ(counts({"out \"--Assert(File:src/mouse/SpiUtil::Line:", "/dev/mcu close"}), Ints({3, 1}));
    EXPECT_EQ(initSpiUtilDev(MCU_MOUSE), initSpiUtilDev(MCU_MOUSE_ALTERNATE));
    ASSERT_EQ(Ints({mcu_send_frame(0, frame), mcu_write(frame, 1)}), Ints({0, 1}));
    say({0xA0, 6, 1, 1, 1, 1, 1, 0x0A, 0xA0, 6, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1});
    say({0xA0, MCU_MOUSE_ALTERNATE, 0x12, 0x34, 0x56, 0x78, 0x0A, kFiller});
    mcu_mouse_report got{};
    EXPECT_EQ(get_mouse_report(&got), 0);
    EXPECT_EQ(Ints({got.key, got.x, got.y}), Ints({0x80, 0x1234, 0x5678}));
    EXPECT_TRUE(journal_follows(
        {"out \"\\e[0;35m[libmarl] PID (thread_spi_read |pid = ", "out \"x:4660,y:22136,key:80\\n\""}));
    EXPECT_TRUE(printed_error("thread_spi_read", ": data frame error!!!"));
    EXPECT_TRUE(printed_error("thread_spi_read", ":  data frame error!!!"));
    EXPECT_EQ(Ints({get_spi_data(18, frame, 7), get_spi_data(26, frame, 7),
                    get_spi_data(MCU_MOUSE, frame, MCU_RING_SIZE + 1)}),
              Ints(3, -1))
        << "no ring, no command, more than could ever come";
}

// The result of a query and the state that it gives, 9 when it gives none.
Ints query(uint32_t command) {
    uint8_t state = 9;
    const int result = mcu_query_status(command, &state);
    return {result, state};
}

TEST(Link, AnswersComeInTimeLateOrNever) {
    load_link("at 2.9 mcu say " + hex(report(18, 1)), {18, 21});
    EXPECT_EQ(query(18), Ints({0, 1}));
    const double before = sim::now();
    say(report(21, 1));  // the answer of another command is none
    uint8_t frame[MCU_FRAME_SIZE] = {};
    EXPECT_EQ(Ints({mcu_transact(18, frame), get_spi_data(18, frame, 7)}), Ints(2, -1));
    EXPECT_NEAR(sim::now() - before, 6.0, 0.001);
    EXPECT_TRUE(printed_error("get_spi_data", ": SPI_CMD: 0x12  read timeout !!!"));
    sim::run("mcu answer 18 1 a0 12 00 00 00 00 0a ff");
    say(report(18, 1));  // late
    usleep(50'000);
    EXPECT_EQ(query(18), Ints({0, 1})) << "the late answer";
    EXPECT_EQ(query(18), Ints({0, 0})) << "the answer to the query before";
    EXPECT_EQ(Ints({mcu_transact(21, frame), frame[3]}), Ints({0, 1})) << "kept all the time";
}

TEST(Link, TwoCallersShareTheDevice) {
    // The first frame stops half-way and waits for the device; the second one must not get in between.
    load_link("mcu answer 18 1 " + hex(report(18, 1)) + "\nmcu answer 21 1 " + hex(report(21, 2)) +
                  "\nfault /dev/mcu write 1 short 1\nfault /dev/mcu write 2 EAGAIN",
              {18, 21});
    run_together({[] { EXPECT_EQ(query(18), Ints({0, 1})); }, [] { EXPECT_EQ(query(21), Ints({0, 2})); }});
    EXPECT_EQ(counts({"/dev/mcu open", "out \"\\e[0;35m"}), Ints({1, 1})) << "one reader";
}

TEST(Link, WritesAreRepeatedForALimitedTime) {
    load("missing /dev/mcu");
    EXPECT_EQ(Ints({mcu_shutdown(), get_spi_data(18, Bytes(7).data(), 7), seen("out \"--Assert(")}),
              Ints({-1, -1, 1}));
    load_link("fault /dev/mcu write 1..299 short 0\nfault /dev/mcu write 300 short 1");
    run("fault /dev/mcu write 301..599 EAGAIN\nfault /dev/mcu write 601+ EIO");
    EXPECT_EQ(Ints({mcu_shutdown(), mcu_shutdown()}), Ints({MCU_FRAME_SIZE, -1})) << "twice at the last try";
    EXPECT_NEAR(sim::now(), 3 * 2.99, 0.001);
    EXPECT_TRUE(journal_follows({"/dev/mcu write 1: a1", "/dev/mcu write 6: 03 00 00 00 00 0a"}));
    EXPECT_EQ(query(18)[0] + PowerControl(18, 1), -2);
    EXPECT_TRUE(seen("out \"--Assert(") && printed_error("PowerControl", ": Send CMD2SPI to mcu fail!"));
}

// Whoever waits ends with the reader, and whoever comes next finds a new one on the same device.
TEST(Link, ReaderEndsWithAReadErrorAndIsStartedAgain) {
    load_link("mcu answer 18 1 " + hex(report(18, 1)) +
                  "\nfault /dev/mcu read 1..2 short 0\nfault /dev/mcu read 3..4 EAGAIN\nfault /dev/mcu read "
                  "6..8 EIO",
              {18, 21, MCU_MOUSE});
    EXPECT_EQ(query(18)[0], 0) << "no data is no error";
    const double before = sim::now();
    run_together({[] { EXPECT_EQ(query(21)[0], -1); },
                  [] { EXPECT_EQ(get_spi_data(MCU_MOUSE, Bytes(7).data(), 7), -1); }});
    EXPECT_LT(sim::now() - before, 0.1);
    EXPECT_TRUE(printed_error("thread_spi_read", ": MCU read error"));
    sim::run("fault thread pthread_create 1 EAGAIN");
    Ints results = {mcu_open()};
    for (int i = 0; i < 4 && results.back() != 0; ++i) results.push_back(query(18)[0]);
    EXPECT_EQ(Ints({results.front(), results.back()}), Ints({-1, 0})) << "once the device can be read again";
    EXPECT_EQ(counts({"/dev/mcu open", "/dev/mcu close"}), Ints({1, 0}));
    EXPECT_EQ(count("out \"\\e[0;35m"), count("out \"\\e[0;32;31m[libmarl] ERROR") + 1) << "one at a time";
}

TEST(Link, ReaderLeavesSignalsToTheProgram) {
    if (getenv("MARL_SIM_CLONE") != nullptr) GTEST_SKIP() << "a thread of the board would take the signal";
    load_link();
    ASSERT_GT(mcu_open(), 0);
    sigset_t mine, seen_before, pending, none;
    sigemptyset(&mine);
    sigemptyset(&none);
    sigaddset(&mine, SIGUSR1);
    ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &mine, &seen_before), 0);
    EXPECT_EQ(sigismember(&seen_before, SIGTERM), 0) << "the caller's own are as they were";
    static volatile sig_atomic_t struck = 0;
    signal(SIGUSR1, [](int) { struck = 1; });
    kill(getpid(), SIGUSR1);
    const timespec moment{0, 50'000'000};
    sigtimedwait(&none, nullptr, &moment);  // in real time, for whoever would take it
    ASSERT_EQ(sigpending(&pending), 0);
    EXPECT_EQ(Ints({sigismember(&pending, SIGUSR1), struck}), Ints({1, 0}));
}

TEST(Rings, AreFreedOnceNobodyHoldsThem) {
    load_link("fault heap malloc 2 ENOMEM", {18});
    mouse_client client{};
    EXPECT_EQ(Ints({mouse_close(&client), mouse_open(&client), mouse_open(&client)}),
              Ints({-1, kHeapFails ? -1 : 0, 0}));
    const auto hold = [] {
        const mcu::HeldRing ring(18);
        usleep(50'000);
        EXPECT_EQ(fifo_put(ring.get(), report(18, 1).data(), MCU_FRAME_SIZE), 7U);
    };
    const auto free_both = [&] {
        usleep(10'000);
        EXPECT_EQ(deinitSpiUtilDev(18), 0);
        EXPECT_NEAR(sim::now(), 0.05, 0.001);
        EXPECT_FALSE(mcu::HeldRing(18).exists());
        usleep(60'000'000);
        EXPECT_EQ(mouse_close(&client), 0);
    };
    const auto wait = [] {
        mcu_mouse_report got{};
        EXPECT_EQ(get_mouse_report(&got), -1);
        EXPECT_NEAR(sim::now(), 60.05, 0.02) << "the mouse is waited for without limit";
    };
    run_together({hold, free_both, wait});
    EXPECT_EQ(client.fifo, nullptr);
}

TEST(Rings, ComeAndGoUnderLoad) {
    if (!scenario::in_real_time("present /dev/mcu")) return;
    ASSERT_GT(mcu_open(), 0);
    std::atomic<bool> over{false};
    std::atomic<int> taken{0};
    const auto take = [&] {
        for (Bytes frame(MCU_FRAME_SIZE); !over; usleep(1000)) {
            if (get_spi_data(18, frame.data(), MCU_FRAME_SIZE) != MCU_FRAME_SIZE) continue;
            EXPECT_EQ(hex(frame), "a0 12 00 01 00 00 0a ");
            ++taken;
        }
    };
    const auto come_and_go = [&] {
        for (unsigned i = 0; i < 100; ++i) {
            initSpiUtilDev(18);
            say(report(18, 1)), say(report(18, 1));
            usleep(i % 20 * 1000);
            deinitSpiUtilDev(18);
        }
        over = true;
    };
    run_together({take, take, come_and_go});
    EXPECT_GT(taken, 0);
}

TEST(Power, IsSetAndReadBack) {
    const std::tuple<uint8_t, uint8_t, std::string, int, std::string> cases[] = {
        {18, 1, "mcu answer 18 1 a0 12 00 01 00 00 0a ff", 0,
         "Set CMD:0x12 *************************success\\n\\n\""},
        {24, 0, "mcu answer 24 1 a0 18 00 00 00 00 0a ff", 0, "Set CMD:0x18 ***"},
        {23, 1, "mcu answer 23 1 a0 17 00 00 00 00 0a ff", -1, ": Set CMD:0x17 fail!"},
        {21, 1, "", -1, ": Set and QueryStatus fail!"},
    };
    for (const auto& [command, on, script, result, text] : cases) {
        SCOPED_TRACE(text);
        load_link(script, {command});
        EXPECT_EQ(PowerControl(command, on), result);
        const bool set = result == 0;
        EXPECT_TRUE(set ? journal_follows({"out \"[libmarl] " + text}) : printed_error("PowerControl", text));
        const Steps steps = {{0.0, "/dev/mcu write 7: " + hex({0xA1, command, 0, on}) + "00 00 0a"},
                             {1.0, "/dev/mcu write 7: " + hex({0xA1, command, 1}) + "00 00 00 0a"}};
        EXPECT_TRUE(!set || scenario::Journal(sim::journal()).follows(steps));
    }
    sim::clear_journal();
    for (const uint32_t command : {19U, 20U, 22U, UINT32_MAX}) {
        EXPECT_EQ(PowerControl(command, 1), -1);
        EXPECT_EQ(query(command), Ints({-1, 9}));
    }
    EXPECT_EQ(PowerControl(18, 2), -1);
    EXPECT_FALSE(seen("/dev/mcu write"));
}

TEST(Halt, CutsThePowerOfRecordersOnly) {
    load_link("cmos 1 5a");
    strcpy(HWINFO.product_model, "QZ-NRX1");
    EXPECT_EQ(sys_halt(), MCU_FRAME_SIZE);
    EXPECT_TRUE(
        journal_follows({"err \"sys will halt\\n\"", "sync", "out \"[libmarl] write shutdown cmos start\\n\"",
                         "/dev/misc/rtc write 2: 01 00", "out \"[libmarl] write shutdown cmos end \\n\"",
                         "/dev/mcu write 7: a1 03 00 00 00 00 0a"}));
    EXPECT_FALSE(seen("fail"));
    strcpy(HWINFO.product_model, "IPC-KL7");
    sim::clear_journal();
    EXPECT_EQ(sys_halt(), 0);
    EXPECT_TRUE(journal_follows({"err \"sys will halt\\n\""}));
    EXPECT_FALSE(seen("/dev/misc/rtc") || seen("/dev/mcu write"));
}

TEST(SignalOutput, FollowsTheModel) {
    const std::string expander = "/dev/misc/gio_expander write 2: ", gpio = "/dev/misc/gpio write 2: ";
    const std::tuple<const char*, std::string, std::string, int> cases[] = {
        {"KXE4AF", expander + "00 01", expander + "00 00", 0},
        {"KXE4AH", expander + "00 01", expander + "00 00", 0},
        {"KXE4AM", gpio + "31 00", gpio + "31 01", 0},
        {"QZ-NRX2", gpio + "2d 01", gpio + "2d 00", 2},
        {"KXE8AM", "", "", 0},
    };
    HWINFO.video_channel = 4;
    for (const auto& [model, on, off, result] : cases) {
        SCOPED_TRACE(model);
        strcpy(HWINFO.product_model, model);
        load("");
        EXPECT_EQ(Ints({signal_output_on(), signal_output_off()}), Ints(2, result));
        EXPECT_TRUE(on.empty() ? !seen(" write ") : journal_follows({on, off}));
    }
}

TEST(SignalOutput, TogglesForATimeAndEndsOff) {
    strcpy(HWINFO.product_model, "QZ-NRX2");
    sim::load("");
    EXPECT_EQ(signal_output_toggle(5, 1100), 0);
    Steps steps;
    for (int change = 0; change <= 11; ++change)
        steps.push_back({change * 0.1, "/dev/misc/gpio write 2: 2d 0" + std::to_string(1 - change % 2)});
    EXPECT_TRUE(scenario::Journal(sim::journal()).follows(steps));
    EXPECT_EQ(count("/dev/misc/gpio write"), steps.size());
    EXPECT_NEAR(sim::now(), 1.2, 0.001);
    sim::load("");
    EXPECT_EQ(signal_output_toggle(1000, 10), 0);
    EXPECT_NEAR(sim::now(), 0.011, 0.0001) << "1 ms is the shortest half-period";
    EXPECT_EQ(Ints({signal_output_toggle(0, 10), sleep_us(1'500'000)}), Ints({-1, 0}));
    EXPECT_NEAR(sim::now(), 1.511, 0.0001) << "nothing for rate 0, then more than a second";
}

}  // namespace
