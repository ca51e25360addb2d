/*
 * Wait for a modem: switch its power on and wait until the kernel has found it.
 *
 *     wait-for-modem [SECONDS]
 */
#include <libmarl.h>
#include <stdio.h>
#include <stdlib.h>

enum { POLLS_PER_SECOND = 10 };

//! [wait]
/*
 * The supply comes first: a modem without power never appears. The result of the switch is not an error to give up on,
 * since some models have no switch and their modem is always on.
 */
static int wait_for_modem(Usb3gModule* modem, int seconds) {
    power_3g_on();
    return wait_3g_usb_device(modem, seconds * POLLS_PER_SECOND);
}
//! [wait]

//! [known]
/* The record holds what the modem says of itself; the table of the library says whether anybody has tried it. */
static void print_modem(const Usb3gModule* modem) {
    printf("%s %s (%s:%s)\n", modem->manufacturer, modem->product, modem->vendor_id, modem->product_id);
    printf("%s\n", lookup_3g_module(modem) >= 0 ? "a modem that is known" : "a modem that nobody has tried");
}
//! [known]

int main(int argc, char** argv) {
    const int seconds = argc > 1 ? atoi(argv[1]) : 60;
    Usb3gModule modem;
    if (wait_for_modem(&modem, seconds) < 0) {
        printf("no modem within %d s\n", seconds);
        return 1;
    }
    print_modem(&modem);
    return 0;
}
