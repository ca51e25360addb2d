/*
 * Who am I: what the library knows of the board that a program runs on.
 *
 *     who-am-i
 *
 * Identification is over when main() starts, so the record is simply there.
 */
#include <libmarl.h>
#include <stdio.h>

//! [record]
/* The name may fill its field, and has no NUL then: print it with a bound. */
static void print_board(void) {
    printf("model %.*s, revision %u\n", MARL_MODEL_SIZE, HWINFO.product_model, (unsigned)HWINFO.hd_ver);
    printf("%d video channels\n", get_dvr_info(MARL_INFO_VIDEO_CHANNEL));
}
//! [record]

//! [model]
/* Behaviour that depends on the board asks for the beginning of the name: one question for a whole family. */
static void print_family(void) { printf("%s\n", check_product_model("IPC-") ? "a camera" : "not a camera"); }
//! [model]

//! [environment]
/* A value is cut to the buffer, so the buffer has room for the longest that can be set. */
static void print_boot_variable(const char* name) {
    char value[MARL_ENV_VALUE_MAX + 1];
    if (get_armboot_para(name, value, sizeof value) == 0)
        printf("%s is %s\n", name, value);
    else
        printf("%s is not set\n", name);
}
//! [environment]

int main(void) {
    print_board();
    print_family();
    print_boot_variable("ethaddr");
    print_boot_variable("appauto");
    return 0;
}
