// The board is identified again: by a caller with another ID, and by the library and the daemon where a source failed.
#include <libmarl.h>

#include <cstring>
#include <string>

#include "helpers/scenario.h"
#include "sim.h"

namespace {

using scenario::Outcome;

struct Version {
    const char* text;
    int code;  // -1: refused
};

TEST(Sections, VersionsAreReadAsScanfReadsThem) {
    constexpr Version kVersions[] = {
        {"V1.0", 0},
        {"V2.003", 0x13},
        {"V002.3", 0x13},
        {"V1.010", 0x0a},
        {"V 2. 3", 0x13},
        {"V+2.3", 0x13},
        {"V2.3b", 0x13},
        {"V16.16", 0xfff0},
        {"V17.0", -1},
        {"V2.17", -1},
        {"V0.1", -1},
        {"V2.-1", -1},
        {"V2 .3", -1},
        {" V2.3", -1},
        {"V2", -1},
        {"2.3", -1},
        {"", -1},
        {"V4294967298.3", -1},
        {"V99999999999999999999.0", -1},
    };
    sim::load("env a=1");
    for (const Version& each : kVersions) {
        ASSERT_EQ(__set_armboot_para("[hd_ver]", each.text), 0);
        HWINFO_SECTIONS.hd_ver = 0x5555;
        sim::clear_journal();
        EXPECT_EQ(get_hwid_info(), 0);
        EXPECT_EQ(HWINFO_SECTIONS.hd_ver, each.code < 0 ? 0x5555 : each.code) << each.text;
        EXPECT_EQ(
            sim::journal().find("get_hwinfo2Struct|1205): Error:Too large version ") != std::string::npos,
            each.code < 0)
            << each.text;
    }
}

TEST(Identification, WithAnotherIdLeavesNothingOfTheFirst) {
    const auto identify = [](const char* text) {
        EXPECT_EQ(__set_armboot_para("HWID", text), 0);
        hwid_transform();
        return std::string(HWINFO.product_model) + " " + std::to_string(product_type) + " " +
               std::to_string(get_product_type()) + " " + std::to_string(product_code) + " " +
               std::to_string(hwid[1]);
    };
    sim::load("env a=1");
    EXPECT_EQ(identify("KXE4AF:1:2"), "KXE4AF 6 6 0 0");
    EXPECT_EQ(identify("12aa"), "IPC-KA2 0 10 10 18");
    EXPECT_EQ(identify("0:1"), "0 0 0 0 0") << "a type of the table, not a packed ID";
    EXPECT_EQ(identify("12ab"), "IPC-KA2 0 10 10 18") << "the packed ID is taken once";
}

// Faults of the sources while the library initialises itself, and what it has found when main runs.
struct Load {
    const char* what;
    std::string script;
    std::string line;
    const char* times = "nothing";  // an event that the journal has `count` times
    size_t count = 0;
};

class LoadTime : public testing::TestWithParam<Load> {};

TEST_P(LoadTime, ASourceThatFailsIsAskedAgain) {
    scenario::Options options;
    options.keep_output = true;
    const Outcome run = scenario::run("tests/identify", GetParam().script, options);
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(run.output.find(GetParam().line), std::string::npos) << run.journal.text();
    EXPECT_EQ(run.journal.count(GetParam().times), GetParam().count)
        << GetParam().times << run.journal.text();
    EXPECT_EQ(run.journal.count("out \"\\e[0;32;32m[libmarl] SVN NUM"), 1U);
}

const std::string kColon = "env HWID=TRV-A1-I:1:1:2:1:6\n";
const std::string kPacked = "file /proc/qorzo/bootpara qz_keyboard:2\\nHWID:05\n";
const std::string kRecord =
    R"(file! /mnt/mtdblock1 \xef\xcd\xab\x89\x05\x01\x02\x03\x04\x05\x06\x90\x08\x09\x0a\x0b\x0c\x0d\x0e\x0f)"
    "\n";
const std::string kDevice = "file /mnt/custom/ProductDefinition \"Device\" : \"TRV-B7\",\n";

INSTANTIATE_TEST_SUITE_P(
    Faults, LoadTime,
    testing::Values(
        Load{"ReadOnce", kColon + "fault /dev/mtd/1 read 1 EIO", "type=5 code=0 model=TRV-A1-I ",
             "/dev/mtd/1 open", 2},
        Load{"HexadecimalModel", "env HWID=ABC:1:1\nfault /dev/mtd/1 read 1 EIO",
             "type=-1 code=0 model=ABC "},
        Load{"OpenTwice", kColon + "fault /dev/mtd/1 open 1..2 EMFILE", "type=5 code=0 model=TRV-A1-I ",
             "/dev/mtd/1 open", 3},
        Load{"NothingRead", kColon + "fault /dev/mtd/1 read 1..2 short 0", "type=5 code=0 model=TRV-A1-I "},
        Load{"ColonBehindPacked", kColon + kPacked + "fault /dev/mtd/1 read 1 EIO",
             "type=5 code=0 model=TRV-A1-I "},
        Load{"PackedAllTheSame", kColon + kPacked + "fault /dev/mtd/1 read 1+ EIO",
             "type=0 code=5 model=TRV-A1-S ", "/dev/mtd/1 open", 2},
        Load{"BootParameters", kPacked + "fault /proc/qorzo/bootpara open 2 EMFILE",
             "type=0 code=5 model=TRV-A1-S "},
        Load{"BootParametersCut",
             kPacked + "fault /proc/qorzo/bootpara read 2 short 20\nfault /proc/qorzo/bootpara read 3 EIO",
             "type=0 code=5 model=TRV-A1-S "},
        Load{"BootParametersEmpty", kPacked + "fault /proc/qorzo/bootpara read 2 short 0",
             "type=0 code=5 model=TRV-A1-S "},
        Load{"Record", kRecord + "fault /mnt/mtdblock1 open 1 EMFILE", "code=0 model=TRV-A1-S "},
        Load{"RecordCut", kRecord + "fault /mnt/mtdblock1 read 1 short 9\nfault /mnt/mtdblock1 read 2 EIO",
             "code=0 model=TRV-A1-S "},
        Load{"Definition", kPacked + kDevice + "fault /mnt/custom/ProductDefinition read 1 EIO",
             "model=TRV-B7 "},
        Load{"AbsentIsNotAskedAgain", "missing /dev/mtd/1", "type=0 code=0 model=unknow ",
             "err \"get hwid err\\n\"", 1},
        Load{"NoDeviceIsAbsent", "fault /dev/mtd/1 open 1+ ENODEV", "type=0 code=0 model=unknow ",
             "/dev/mtd/1 open", 2}),
    scenario::ByWhat());

TEST(Sections, AnImageThatComesLateIsReadFromTheStart) {
    scenario::Options options;
    options.keep_output = true;
    options.arguments = {"sections"};
    const std::string sections = "env [product_type]=IPC-KQ3\nenv [video_channel]=4\nenv [audio_channel]=2\n";
    const Outcome run = scenario::run("tests/identify", sections + "fault /dev/mtd/1 read 1..6 EIO", options);
    EXPECT_NE(run.output.find("sections=0 c 4 2 "), std::string::npos) << run.output;
    const Outcome late =
        scenario::run("tests/identify", sections + kColon + "fault /dev/mtd/1 read 1..6 EIO\n", options);
    EXPECT_EQ(late.journal.count(
                  "out \"\\e[1;33m[libmarl] WARN (src/misc/ver|get_hwinfo2Struct|1065): Get [audio_"),
              0U)
        << late.output;
}

TEST(Initialisation, ComesBeforeTheConstructorsOfAStaticClient) {
    scenario::Options options;
    options.keep_output = true;
    const Outcome run = scenario::run("tests/constructor", "env HWID=IPC-KQ3:1:2\nlevel 7 1\n", options);
    EXPECT_NE(run.output.find("early model=IPC-KQ3 level=1\n"), std::string::npos) << run.journal.text();
}

// A traffic camera whose media guard stands still; its identity cannot be read for a while.
struct Blind {
    const char* what;
    std::string script;
    double armed;  // when the watchdog is
};

class Supervision : public testing::TestWithParam<Blind> {};

TEST_P(Supervision, BeginsWhenTheBoardIsKnown) {
    const std::string common =
        "env appauto=1\nfile /proc/net/emac_stats DEMAC Error               : 0\n"
        "beat /tmp/mediaguard_to_sentrel every 1 until 200\n";
    const auto run = scenario::run_sentrel(common + GetParam().script, 600);
    EXPECT_TRUE(run.journal.follows({{GetParam().armed, "/dev/misc/wdt ioctl 0x5 25000"},
                                     {scenario::kAnyTime, "out \"[sentrel] MediaGuard is killed\\n\""},
                                     {scenario::kAnyTime, "board reset gpio35"}}))
        << run.journal.text();
    EXPECT_EQ(run.journal.count("/dev/misc/wdt ioctl 0x5"), 1U);
    EXPECT_EQ(run.journal.count("out \"\\e[0;32;32m[libmarl] SVN NUM"), 1U);
    EXPECT_EQ(run.journal.count("out \"sentrel V1.13"), 1U);
}

INSTANTIATE_TEST_SUITE_P(
    Identity, Supervision,
    testing::Values(Blind{"EnvironmentAtLoad", kColon + "fault /dev/mtd/1 read 1..4 EIO", 0},
                    Blind{"EnvironmentAtStartUp", kColon + "fault /dev/mtd/1 read 1..8 EIO", 5},
                    Blind{"EnvironmentForMinutes", kColon + "fault /dev/mtd/1 open 1..16 ENFILE", 155.8},
                    Blind{"BootParametersAtLoad", kPacked + "fault /proc/qorzo/bootpara open 1..3 EMFILE", 0},
                    Blind{"BootParametersForMinutes", kPacked + "fault /proc/qorzo/bootpara open 1..6 EMFILE",
                          0}),
    scenario::ByWhat());

TEST(Supervision, AsksASourceThatIsAbsentNoMore) {
    const auto run = scenario::run_sentrel("missing /dev/mtd/1\n", 300);
    EXPECT_EQ(run.journal.count("err \"get hwid err\\n\""), 1U);
    const auto failing = scenario::run_sentrel("env a=1\nfault /dev/mtd/1 read 1+ EIO\n", 2000);
    EXPECT_EQ(failing.journal.count("err \"get hwid err\\n\""), 3U + 11U)
        << "5, 10, 20 s and so on up to 300 s";
}

}  // namespace
