// A client of the library that prints what the load-time initialiser found out, one "name=value" a line, and
// then does what its arguments say: "again" identifies once more, "sections" runs the section-based
// identification, "info" prints the block for people.
#include <libmarl.h>

#include <cstdio>
#include <cstring>

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
    const int result = get_hwid_info();
    uint16_t fields[sizeof HWINFO_SECTIONS / sizeof(uint16_t)];
    memcpy(fields, &HWINFO_SECTIONS, sizeof fields);
    printf("sections=%d", result);
    for (const uint16_t field : fields) printf(" %x", field);
    printf("\n");
}

}  // namespace

int main(int argc, char** argv) {
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    print_identity();
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "again") == 0) {
            hwid_transform();
            print_identity();
        } else if (strcmp(argv[i], "sections") == 0) {
            print_sections();
        } else if (strcmp(argv[i], "info") == 0) {
            print_system_info();
        }
    }
    return 0;
}
