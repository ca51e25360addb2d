// A client of the library that prints what the load-time initialiser found out, one "name=value" a line, then
// with "sections" what the section-based identification finds, with "info" the block for people.
#include <libmarl.h>

#include <array>
#include <bit>
#include <cstdio>
#include <string_view>

namespace {

void print_identity() {
    printf("type=%d code=%u model=%.32s keyboard=%d gpio=%d\n", static_cast<int>(product_type), product_code,
           HWINFO.product_model, static_cast<int>(keyboard_type), pg_gpio != nullptr);
    printf("hwid=");
    for (const uint8_t byte : hwid) printf("%02x", byte);
    printf("\ninfo=");
    for (uint32_t index = 0; index < MARL_INFO_COUNT; ++index) printf("%d ", get_dvr_info(index));
    printf("\nclocks=");
    for (uint16_t i = 0; i < HWINFO.cpu_count; ++i) printf("%d ", HWINFO.cpu_clock_freq[i]);
    printf("\n");
}

void print_sections() {
    printf("sections=%d", get_hwid_info());
    for (const auto field : std::bit_cast<std::array<uint16_t, 18>>(HWINFO_SECTIONS)) printf(" %x", field);
    printf("\n");
}

}  // namespace

int main(int argc, char** argv) {
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    print_identity();
    const std::string_view argument = argc > 1 ? argv[1] : "";
    if (argument == "sections") print_sections();
    if (argument == "info") print_system_info();
    return fgetc(stdin) == EOF ? ferror(stdin) : 0;  // a closed input has something in its place
}
