// Identification, as a program that links the shipped library finds it.

#include "helpers/board.h"

namespace {

using namespace board;
using scenario::Outcome;

Outcome identify(const std::string& script, const std::vector<std::string>& arguments = {}) {
    Outcome result = scenario::run("tests/identify", script, {.arguments = arguments, .keep_output = true});
    EXPECT_EQ(result.status, 0);
    return result;
}

bool says(const Outcome& run, const std::string& text) { return run.output.find(text) != std::string::npos; }

struct Case {
    const char* what;
    std::string script;
    std::vector<std::string> lines;
};

class Identity : public testing::TestWithParam<Case> {};

TEST_P(Identity, IsFoundBeforeMain) {
    const Outcome run = identify(GetParam().script);
    for (const std::string& line : GetParam().lines)
        EXPECT_TRUE(says(run, line)) << line << "\nin\n" << run.output;
}

std::string times(int number, const std::string& text) {
    return number == 0 ? "" : text + times(number - 1, text);
}

std::string packed(const std::string& digits) { return "file /proc/qorzo/bootpara HWID:" + digits + "\n"; }

const std::string kDefinition = R"(file /mnt/custom/ProductDefinition "Vendor" : "x",
file /mnt/custom/ProductDefinition "Device" : "",
file /mnt/custom/ProductDefinition "Device" : "TRV-A9-X",
)";

INSTANTIATE_TEST_SUITE_P(
    ColonSeparated, Identity,
    testing::ValuesIn<Case>(
        {{"Whole",
          "env HWID=KXE4AF:1:2:0:7:5:0:4:1:3:3:1:12c_12c:2:0:0:1:0:1:3:0\n",
          {"type=6 code=0 model=KXE4AF keyboard=0 gpio=1\n", "hwid=00000000000000000000000000000000\n",
           "info=6 4 32 2 7 5 1 0 0 1 0 0 0 3 1 0 1 0 1 2 0 3 3 2 0 \n", "clocks=300 300 \n"}},
         {"UnknownModel",
          "env HWID=NOSUCH:1:2\n",
          {"type=-1 code=0 model=NOSUCH", "Undefined NOSUCH in [product_type]"}},
         {"EmptyAndWrongParts",
          "env HWID=QZ-NRX2::zz:3\n",
          {"type=9 ", "info=9 0 32 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 3 "}},
         {"TooManyParts", "env HWID=Q3" + times(60, ":1") + "\n", {"type=13 ", "clocks=1 \n"}},
         {"TooManyClocks",
          "env HWID=Q3:1:1:1:1:1:1:1:1:1:1:1:1_2_3_4_5_6_7_8_9_a:7\n",
          {"clocks=1 2 3 4 5 6 7 8 \n", "info=13 1 32 7 "}},
         {"LongModel",
          "env HWID=M2345678901234567890123456789012345:1\n",
          {"type=-1 code=0 model=M234567890123456789012345678901 "}}}),
    scenario::ByWhat());

INSTANTIATE_TEST_SUITE_P(
    Packed, Identity,
    testing::ValuesIn<Case>(
        {{"BootParameter",
          packed("2A9") + "file /proc/qorzo/bootpara qz_keyboard:2\n",
          {"type=0 code=9 model=QZ-NRX2 keyboard=2", "info=9 21 32 ", "hwid=a902000000000000"}},
         {"EveryField",
          packed("8A5B8D4C3B2A1948"),
          {"hwid=48192a3b4c8d5b8a", "code=8 ",
           "info=8 10 6 20 2 11 3 12 4 2 3 0 3 5 5 2 1 8 0 2 0 63 63 0 0 ",
           "[libmarl] Uncorrect hardware version!"}},
         {"EnvironmentHasMoreDigits",
          "env HWID=abcd0000000000001189\n",
          {"hwid=8911000000000000cdab000000000000", "code=9 ", "get hwid err\n",
           "[libmarl] no new hwid scheme!\n"}},
         {"NothingAnywhere",
          "",
          {"type=0 code=0 model=unknow ", "info=0 32 32 0 ", "get hwid err\n", "get_armboot_para\n",
           "open /mnt/mtdblock1"}},
         {"Record",
          R"(file! /mnt/mtdblock1 \xef\xcd\xab\x89\x0a\x01\x02\x03\x04\x05\x06\x90\x08\x09\x0a\x0b\x0c\x0d\x0e\x0f)",
          {"hwid=0a010203040506900800000000000000", "code=0 model=IPC-KA2 "}},
         {"RecordWithWrongMagic",
          R"(file! /mnt/mtdblock1 \x78\x56\x34\x12\x0a\x01\x02\x03\x04\x05\x06\x90\x08\x09\x0a\x0b\x0c\x0d\x0e\x0f)",
          {"MAGIC error: 12345678\n", "hwid=00000000000000000000000000000000"}},
         {"ShortRecord",
          R"(file! /mnt/mtdblock1 \xef\xcd\xab\x89\x0a)",
          {"read /mnt/mtdblock1", "model=unknow "}},
         {"DeviceFromTheDefinition", packed("05") + kDefinition, {"model=TRV-A9-X ", "info=5 32 "}},
         {"RecorderFromTheDefinition", packed("09") + kDefinition, {"model=QZ-TRV-A9-X\n "}},
         {"DefinitionWithoutQuotes",
          packed("1f") + "file /mnt/custom/ProductDefinition Device: none\n",
          {"model=TRV-A3-S "}},
         {"UnsupportedHardware",
          packed("6000000000012"),
          {"model=IPC-KM1 ", "|hwid_transform|738): hardware version"}},
         {"LineWithoutValue",
          "file /proc/qorzo/bootpara HWID:\nfile! /proc/qorzo/bootpara qz_keyboard",
          {"code=0 model=unknow keyboard=0"}}}),
    scenario::ByWhat());

TEST(Identification, AskingAgainKeepsTheEnvironmentsId) {
    const Outcome run = identify("env HWID=12a9\n", {"again"});
    const size_t first = run.output.find("hwid=a912");
    ASSERT_NE(first, std::string::npos);
    EXPECT_NE(run.output.find("hwid=a912", first + 1), std::string::npos) << run.output;
}

TEST(Identification, SectionsOfTheEnvironment) {
    const Outcome run = identify(R"(env [product_type]=IPC-KQ3
env [video_channel]=4
env [alarm_mode]=IPC-1.0.440
env [fvideo_chip]=no such chip
env [hd_ver]=V2.3
env [hwinfo_ver]=V17.0
env [net_interface]=EPON
)",
                                 {"sections"});
    EXPECT_TRUE(says(run, "sections=0 c 4 0 5 ffff 0 0 0 0 0 0 0 0 13 0 2 0 0\n")) << run.output;
    for (const char* text : {"|get_hwinfo2Struct|1065): Get [audio_channel] error\n",
                             "|string2Value|1037): Undefined no such chip in [fvideo_chip]\n",
                             "|get_hwinfo2Struct|1250): Error:Too large version V17.0\n"}) {
        EXPECT_TRUE(says(run, text)) << text;
    }
}

TEST(Identification, PrintedForPeople) {
    const Outcome run =
        identify("env HWID=KXE4AF:1:2:0:10:5:0:4:1:3:f:1:12c_1b0:2:0:0:1:4:1:3:0\n", {"info"});
    const std::string stars(70, '*');
    const std::string block =
        stars + "\n|                      SYSTEM INFO                                       \n" +
        R"(|	product_model:			KXE4AF
|	hwid_ver:		        1
|	product_category:	  	IPC
|	product_sub_category:		0
|	forward video chip:		unknow: 16
|	DSP chip:		        dm365
|	back video chip:		no chip
|	video_channel:			4
|	analog audio mode:		TW2835
|	audio_in_channel:	        0x3
|	audio_out_channel:	        0xf
|	store interface:		USB
|	cpu_count:	                2
|	cpu_clock_freq[0]:              300MHz
|	cpu_clock_freq[1]:              432MHz
|	alarm_mode:		        IPC-1.0.120
|	wireless interface:		no device
|	hardware encode:		no device
|	video_interface:       		HD-SDI
|	net_interface:                  unknow 4
|	intelleg_analyse:            	Yes
|	hardware version:		3
)" + stars +
        "\n";
    EXPECT_TRUE(says(run, block)) << run.output;
}

TEST(Initialisation, WithoutGpioNoProgramStarts) {
    const Outcome run = scenario::run("tests/identify", "missing /dev/misc/gpio", {.keep_output = true});
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(run.journal.follows(at(0, {"out \"\\n\"", "out \"\\e[0;32;32m[libmarl] libmarl.so Build on ",
                                           "out \"\\e[0;32;32m[libmarl] SVN NUM: 3668.\\n\\e[m\"",
                                           "err \"get hwid \\n: ", "err \"open /dev/misc/gpio \"",
                                           "err \"create pg_gpio ret\"", "err \"src/misc/ver:"})));
    EXPECT_FALSE(says(run, "type=")) << "main must not run";
}

}  // namespace
