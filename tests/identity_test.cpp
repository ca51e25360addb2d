// Identification: as a program that links the shipped library finds it, with sources that fail, and
// asked for again.
#include <libmarl.h>

#include <cstring>
#include <sstream>

#include "helpers/board.h"

namespace {

using namespace board;
using scenario::kAnyTime;
using scenario::run_sentrel;

scenario::Outcome identify(const std::string& script, const std::string& argument = "") {
    auto run = scenario::run("tests/identify", script,
                             {.arguments = {argument}, .keep_output = true, .streams = [] { close(0); }});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(counts({"out \"\\e[0;32;32m[libmarl] SVN NUM", "err \"create pg"}, run.journal), Ints({1, 0}));
    return run;
}

bool says(const scenario::Outcome& run, const std::string& text) {
    return run.output.find(text) != std::string::npos;
}

std::string packed(const std::string& digits) {
    return "file /proc/qorzo/bootpara qz_keyboard:2\\nHWID:" + digits + "\n";
}
std::string record(const std::string& start) {
    return "file! /mnt/mtdblock1 " + start +
           R"(\x0a\x01\x02\x03\x04\x05\x06\x90\x08\x09\x0a\x0b\x0c\x0d\x0e\x0f)" + "\n";
}
std::string fault(const std::string& what) { return "fault " + what + "\n"; }

const std::string kColon = "env HWID=TRV-A1-I:1:1:2:1:6\n", kPacked = packed("5");
const std::string kByColon = "type=5 code=0 model=TRV-A1-I ", kByPacked = "type=0 code=5 model=TRV-A1-S ";
const std::string kEnv = "/dev/mtd/1 ", kParameters = "/proc/qorzo/bootpara ", kRecord = "/mnt/mtdblock1 ";
const std::string kEnvFails = fault(kEnv + "open 1+ EMFILE");
const std::string kMagic = R"(\xef\xcd\xab\x89)", kZeros(32, '0');
const std::string kDefinition = R"(file /mnt/custom/ProductDefinition "Vendor" : "x",
file /mnt/custom/ProductDefinition "Device" : "",
file /mnt/custom/ProductDefinition "Device" : "TRV-A9-X",
)";

// What is found before main, and how often an event is in the journal.
TEST(Identification, ByTheSourcesThatCanBeRead) {
    std::string parts, model = "M2345678901234567890123456789012345";
    for (int i = 0; i < 60; ++i) parts += ":1";
    const struct {
        std::string script;
        Strings lines;
        std::string event = "nothing";
        size_t count = 0;
    } cases[] = {
        {"env HWID=NOSUCH:1:2",
         {"type=-1 code=0 model=NOSUCH", "Type|1050): Undefined NOSUCH in [product_type]"}},
        {"env HWID=QZ-NRX2::zz:3",
         {"type=9 ", "hwid=" + kZeros + "\ninfo=9 0 32 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 3 "}},
        {"env HWID=Q3:1:1:1:1:1:1:1:1:1:1:1:1b0" + parts, {"type=13 ", "clocks=432 \n"}},
        {"env HWID=Q3:1:1:1:1:1:1:1:1:1:1:1:1_2_3_4_5_6_7_8_9_a:7",
         {"clocks=1 2 3 4 5 6 7 8 \n", "info=13 1 32 7 "}},
        {"env HWID=Q3:1:1:1:1:1:1:1:1:1:1:9_9:1_2_3", {"clocks=1 2 3 \n"}},
        {"env HWID=" + model + ":1", {"type=-1 code=0 model=" + model.substr(0, 31) + " "}},
        {packed("8A5B8D4C3B2A1948"),
         {"hwid=48192a3b4c8d5b8a", "code=8 ", "info=8 10 6 20 2 11 3 12 4 2 3 0 3 5 5 2 1 8 0 2 0 63 63 0 0 ",
          "[libmarl] Uncorrect hardware version!"}},
        {"env HWID=abcd0000000000001189",
         {"hwid=8911000000000000cdab000000000000", "code=9 ", "[libmarl] no new hwid scheme!\n"},
         "err \"get_armboot_para"},
        {"", {"model=unknow ", "info=0 32 32 0 ", "get_armboot_para\n", "open /mnt/mtdblock1"}},
        {record(R"(\x78\x56\x34\x12)"), {"MAGIC error: 12345678\n", "hwid=" + kZeros}},
        {"file! /mnt/mtdblock1 " + kMagic + "\\x0a", {"read /mnt/mtdblock1", "model=unknow "}},
        {"env a=1\n" + kPacked, {kByPacked}, "err \"get hwid \\n: Success\\n\"", 1},
        {kPacked + kDefinition, {"model=TRV-A9-X ", "info=5 32 "}},
        {packed("6000000000012"), {"model=IPC-KM1 ", "|hwid_transform|738): hardware version"}},
        {"file /proc/qorzo/bootpara HWID:\nfile! /proc/qorzo/bootpara qz_keyboard",
         {"code=0 model=unknow keyboard=0"}},
        // A source that fails is asked again, one that is absent is not.
        {"env HWID=ABC:1:1\n" + fault(kEnv + "read 1 EIO"), {"type=-1 code=0 model=ABC "}},
        {"env HWID=12aa\n" + fault(kEnv + "read 1 EIO"), {"hwid=aa12"}, "err \"get hwid err\\n\"", 1},
        {kColon + fault(kEnv + "open 1..2 EMFILE"), {kByColon}, kEnv + "open", 3},
        {kColon + kPacked + fault(kEnv + "read 1 short 0"), {kByColon}, "err \"read mtd: Input", 1},
        {kColon + kPacked + fault(kEnv + "read 1+ EIO"), {kByPacked}, kEnv + "open", 2},
        {kPacked + fault(kParameters + "read 2 short 0"), {kByPacked}},
        {kEnvFails + kPacked + fault(kParameters + "read 2 short 20") + fault(kParameters + "read 3 EIO"),
         {kByPacked}},
        {kEnvFails + kPacked + record(kMagic) + fault(kParameters + "open 3 EMFILE"), {kByPacked}},
        {kEnvFails + record(kMagic) + fault(kRecord + "open 1 EMFILE"),
         {"hwid=0a010203040506900800000000000000", "code=0 model=IPC-KA2 "}},
        {record(kMagic) + fault(kRecord + "read 1 short 9") + fault(kRecord + "read 2 EIO"),
         {"code=0 model=IPC-KA2 "}},
        {packed("09") + kDefinition + fault("/mnt/custom/ProductDefinition read 1 EIO"),
         {"model=QZ-TRV-A9-X\n "}},
        {"file /proc/qorzo/bootpara", {"type=0 code=0 model=unknow "}, "err \"get hwid err\\n\"", 1},
        {"missing /dev/mtd/1", {"type=0 code=0 model=unknow "}, "err \"get hwid err\\n\"", 1},
        {fault(kEnv + "open 1+ ENODEV"), {"type=0 code=0 model=unknow "}, kEnv + "open", 2},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.script);
        const auto run = identify(one.script);
        for (const std::string& line : one.lines) EXPECT_TRUE(says(run, line)) << line << run.journal.text();
        EXPECT_EQ(run.journal.count(one.event), one.count) << run.journal.text();
    }
}

// For each rule its digits: code, analysis and network, video, hardware, sensor. D: the file names the model.
TEST(Identification, NamesEveryModelOfThePackedCodes) {
    load("env a=1");
    const auto model_of = [](std::string id, const char* definition) {
        id.resize(6, '0');
        write_file("/mnt/custom/ProductDefinition", definition);
        write_file("/proc/qorzo/bootpara",
                   "HWID:" + id.substr(2, 3) + "000000" + id[5] + "000" + id.substr(0, 2) + "\n");
        hwid_transform();
        return std::string(HWINFO.product_model);
    };
    std::istringstream rules(R"(00 0 unknow, 018 D1 TRV-A2-I, 01 D1 TRV-A2-S, 021 2 IPC-KN1F,
        02050c 0 IPC-KN1P, 02050d 0 IPC-KN1Q, 020004 2 IPC-KN1S, 020505 2 IPC-KN1S, 020009 2 IPC-KN1S,
        02040d 2 IPC-KN1E, 0301 2 IPC-KB1, 03 2 IPC-KB2, 04 D1 TRV-A5-S, 058 D1 TRV-A1-I, 05 D1 TRV-A1-S,
        06004 2 KXE4AH, 06 2 KXE4AF, 070021 2 IPC-KD1, 070001 2 IPC-KD2, 070007 2 IPC-KD3, 07000a 2 IPC-KD4,
        07000f 2 IPC-KD5, 07002 2 Unkown Type, 080021 2 IPC-KE1, 080041 2 IPC-KE2, 08 2 IPC-KE3,
        08002 2 IPC-KE3, 08004 2 IPC-KE4, 08006 2 IPC-KE5, 08008 2 IPC-KE6, 0800a 2 , 09 1 QZ-NRX2,
        0a 2 IPC-KA2, 0b 2 IPC-KT1, 0c 2 IPC-KQ3, 0d 2 Q3, 0e 2 Q4, 0f 2 Q5, 10 0 unknow, 11 2 IPC-KP1,
        12 2 IPC-KM1, 12002 2 IPC-KM2, 12004 2 IPC-KM1, 13 0 IPC-KN1S, 14 0 unknow, 15 0 unknow,
        16 2 IPC-KW1, 17 0 unknow, 18 2 IPC-KW2, 190005 2 IPC-KR1, 19 2 IPC-KR2, 1a D1 TRV-A6-S, 1b 0 VMK51F,
        1c8 D1 TRV-A4-I, 1c D1 TRV-B4-S, 1d0007 2 IPC-KS1, 1d0008 2 IPC-KS2, 1d 2 IPC-KS3, 1e 0 QZ-TRX5-KB-A,
        1f8 D1 TRV-A3-I, 1f D1 TRV-A3-S,)");
    for (std::string rule; std::getline(rules >> std::ws, rule, ',');) {
        const std::string id = rule.substr(0, rule.find(' ')), own = model_of(id, "Device: none");
        const std::string mark = model_of(id, "Device:\"D\"") == "D" ? " D" : " ";
        EXPECT_EQ(id + mark + std::to_string(HWINFO.product_category) + " " + own, rule);
    }
}

TEST(Identification, PrintedForPeople) {
    const auto run = identify("env HWID=KXE4AF:1:2:0:0:5:0:4:1:3:f:1:12c_1b0:2:0:0:1:4:1:3:0\n", "info");
    const std::string stars(70, '*');
    EXPECT_TRUE(says(run, "type=6 code=0 model=KXE4AF keyboard=0 gpio=1\n")) << run.output;
    EXPECT_TRUE(says(run, "info=6 4 32 2 0 5 1 0 0 1 0 0 0 3 1 4 1 0 1 2 0 3 15 2 0 \nclocks=300 432 \n"));
    EXPECT_TRUE(
        says(run, stars + "\n|                      SYSTEM INFO                                       \n" +
                      "|\tproduct_model:\t\t\tKXE4AF\n|\thwid_ver:\t\t        1\n"
                      "|\tproduct_category:\t  \tIPC\n|\tproduct_sub_category:\t\t0\n"
                      "|\tforward video chip:\t\tunknow: 0\n|\tDSP chip:\t\t        dm365\n"
                      "|\tback video chip:\t\tno chip\n|\tvideo_channel:\t\t\t4\n"
                      "|\tanalog audio mode:\t\tTW2835\n|\taudio_in_channel:\t        0x3\n"
                      "|\taudio_out_channel:\t        0xf\n|\tstore interface:\t\tUSB\n"
                      "|\tcpu_count:\t                2\n|\tcpu_clock_freq[0]:              300MHz\n"
                      "|\tcpu_clock_freq[1]:              432MHz\n|\talarm_mode:\t\t        IPC-1.0.120\n"
                      "|\twireless interface:\t\tno device\n|\thardware encode:\t\tno device\n"
                      "|\tvideo_interface:       \t\tHD-SDI\n|\tnet_interface:                  unknow 4\n"
                      "|\tintelleg_analyse:            \tYes\n|\thardware version:\t\t3\n" +
                      stars + "\n"))
        << run.output;
}

TEST(Identification, WithAnotherIdLeavesNothingOfTheFirst) {
    load("env a=1");
    const std::pair<const char*, std::string> steps[] = {
        {"KXE4AF:1:2", "KXE4AF 6 6 0 0 0"},
        {"12aa", "IPC-KA2 0 10 10 aa 12"},
        {"0:1", "0 0 0 0 0 0"},             // a type of the table, not a packed ID
        {"12ab", "IPC-KA2 0 10 10 aa 12"},  // the packed ID is taken once
    };
    for (const auto& [id, found] : steps) {
        EXPECT_EQ(__set_armboot_para("HWID", id), 0);
        EXPECT_EQ(Ints({get_hwid_info(), static_cast<int>(hwid_absent)}), Ints(2, 0));
        char text[64];
        snprintf(text, sizeof text, "%s %d %d %d %x %x", HWINFO.product_model, static_cast<int>(product_type),
                 static_cast<int>(get_product_type()), static_cast<int>(product_code), hwid[0], hwid[1]);
        EXPECT_EQ(text, found);
    }
}

TEST(Sections, OfAnEnvironmentThatComesLate) {
    const auto run = identify(
        "env [product_type]=IPC-KQ3\nenv [video_channel]=4\nenv [audio_channel]=2\nenv [hd_ver]=V2.3\n"
        "env [alarm_mode]=IPC-1.0.440\nenv [fvideo_chip]=no such chip\nenv [hwinfo_ver]=V17.0\n"
        "env [net_interface]=EPON\nfault /dev/mtd/1 read 1..6 EIO\n",
        "sections");
    for (const char* text : {"sections=0 c 4 2 5 ffff 0 0 0 0 0 0 0 0 13 0 2 0 0\n",
                             "|get_hwinfo2Struct|1065): Get [talkback] error\n",
                             "|string2Value|1037): Undefined no such chip in [fvideo_chip]\n",
                             "|get_hwinfo2Struct|1250): Error:Too large version V17.0\n"}) {
        EXPECT_TRUE(says(run, text)) << text << run.output;
    }
    EXPECT_FALSE(says(run, "Get [audio_")) << "read from the start once the image is there";
}

TEST(Sections, NamesAndVersions) {
    load("env [fvideo_chip]=AR0130");
    EXPECT_EQ(
        Ints({check_product_type("IPC"), __set_armboot_para("[product_type]", "IPC-KQ3"), get_hwid_info(),
              static_cast<int>(product_code), check_fvideo_chip("0130"), check_fvideo_chip("x")}),
        Ints({-1, 0, 0, 12, 1, 0}));
    const char* const list[] = {"a", "b", nullptr};
    EXPECT_EQ(Ints({string2Value("a", list, 0), string2Value("b", list, 0), string2Value("c", list, 17),
                    string2Value("a", list, 18), string2ValueProductType("Q3", MODEL_TABLE, 18)}),
              Ints({0, 1, -1, -1, -1}));
    EXPECT_TRUE(seen("|check_product_type|1571): Get product error\\n") &&
                seen("|string2Value|1037): Undefined c in [hwinfo_ver]\\n"));
    const auto field_of = [](const char* version) {  // -1 where one is refused
        EXPECT_EQ(__set_armboot_para("[hd_ver]", version), 0);
        HWINFO_SECTIONS.hd_ver = 9;
        sim::clear_journal();
        EXPECT_EQ(get_hwid_info(), 0);
        const bool is_kept = seen("get_hwinfo2Struct|1205): Error:Too large version ");
        EXPECT_EQ(HWINFO_SECTIONS.hd_ver == 9, is_kept) << version;
        return is_kept ? -1 : int{HWINFO_SECTIONS.hd_ver};
    };
    EXPECT_EQ(Ints({field_of("V1.0"), field_of("V2.003"), field_of("V002.3"), field_of("V1.010"),
                    field_of("V 2. 3"), field_of("V+2.3"), field_of("V2.3b"), field_of("V16.16")}),
              Ints({0, 0x13, 0x13, 0x0a, 0x13, 0x13, 0x13, 0xfff0}));
    for (const char* version : {"V17.0", "V2.17", "V0.1", "V2.-1", "V2 .3", " V2.3", "V2", "2.3", "",
                                "V4294967298.3", "V99999999999999999999.0"})
        EXPECT_EQ(field_of(version), -1);
}

TEST(Initialisation, ComesFirstAndWithoutGpioNoProgramStarts) {
    const auto run = scenario::run("tests/identify", "missing /dev/misc/gpio", {.keep_output = true});
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(run.journal.follows(at(0, {"out \"\\n\"", "out \"\\e[0;32;32m[libmarl] libmarl.so Build on ",
                                           "out \"\\e[0;32;32m[libmarl] SVN NUM: 3668.\\n\\e[m\"",
                                           "err \"get hwid \\n: ", "err \"open /dev/misc/gpio \"",
                                           "err \"create pg_gpio ret\"", "err \"src/misc/ver:"})));
    EXPECT_FALSE(says(run, "type=")) << "main must not run";
    const auto constructor =
        scenario::run("tests/constructor", "env HWID=IPC-KQ3:1:2\nlevel 7 1\n", {.keep_output = true});
    EXPECT_TRUE(says(constructor, "early model=IPC-KQ3 level=1\n")) << constructor.journal.text();
}

// A traffic camera whose media guard stands still; its identity cannot be read for a while.
TEST(Supervision, BeginsWhenTheBoardIsKnown) {
    const std::pair<std::string, double> cases[] = {
        // and when the watchdog is armed
        {kColon + fault(kEnv + "read 1..8 EIO"), 5},
        {kColon + fault(kEnv + "open 1..16 ENFILE"), 155.8},
        {kPacked + fault(kParameters + "open 1..6 EMFILE"), 0},
    };
    for (const auto& [script, armed] : cases) {
        const auto run = run_sentrel(
            "env appauto=1\nfile /proc/net/emac_stats DEMAC Error               : 0\n"
            "beat /tmp/mediaguard_to_sentrel every 1 until 200\n" +
                script,
            600);
        EXPECT_TRUE(run.journal.follows({{armed, "/dev/misc/wdt ioctl 0x5 25000"},
                                         {kAnyTime, "out \"[sentrel] MediaGuard is killed\\n\""},
                                         {kAnyTime, "board reset gpio35"}}));
        EXPECT_EQ(run.journal.count("/dev/misc/gio_expander write 2: 06 01"), armed > 0 ? 1U : 0U);
        EXPECT_EQ(
            counts({"/dev/misc/wdt ioctl 0x5", "out \"\\e[0;32;32m[libmarl] SVN NUM", "out \"sentrel V1.13"},
                   run.journal),
            Ints(3, 1));
    }
    EXPECT_EQ(run_sentrel("missing /dev/mtd/1\n", 300).journal.count("err \"get hwid err\\n\""), 1U);
    const auto failing = run_sentrel("env a=1\nfault /dev/mtd/1 read 1+ EIO\n", 2000);
    EXPECT_EQ(failing.journal.count("err \"get hwid err\\n\""), 3U + 11U)
        << "5, 10, 20 s and so on up to 300 s";
}

}  // namespace
