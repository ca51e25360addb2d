#include "libmarl/init.h"

#include <unistd.h>

#include <cstdlib>

#include "base/console.h"
#include "base/devices.h"
#include "base/diag.h"
#include "base/proc_field.h"
#include "base/text.h"
#include "libmarl/gpio.h"
#include "libmarl/hwid.h"
#include "libmarl/hwinfo.h"

namespace {

using namespace marl;

constexpr int kRevision = 3668;

void create_gpio() {
    if (pg_gpio != nullptr) {
        diag::err("init pg_gpio");
    } else if (createGPIO(&pg_gpio) < 0) {
        diag::err("create pg_gpio ret");
    } else if (pg_gpio == nullptr) {
        diag::err("create pg_gpio");
    }
}

// Every program of the device relies on the object without asking, so none may start without it.
void require_gpio(int line = __builtin_LINE()) {
    if (pg_gpio != nullptr) return;
    diag::err("src/misc/ver:%d: libmarl_init: Assertion `pg_gpio' failed.\n", line);
    _exit(EXIT_FAILURE);
}

}  // namespace

int get_keyboard_bootpara() {
    char token[4] = {};
    if (read_proc_field(device::kBootParameters, "qz_keyboard", token, {}) < 0) return 0;
    return decimal(token);
}

// Reads nothing that another static initialiser sets up: the library's state is constant-initialised. It has
// the first priority that is not reserved, so that the constructors of a program that links the library
// statically find the board identified, as they do with the shared library.
[[gnu::constructor(101)]] void libmarl_init() {
    fill_closed_streams();
    keyboard_type = get_keyboard_bootpara();
    diag::line("");
    diag::out("\033[0;32;32m[libmarl] libmarl.so Build on %s at %s.\n\033[m", MARL_BUILD_DATE,
              MARL_BUILD_TIME);
    diag::out("\033[0;32;32m[libmarl] SVN NUM: %d.\n\033[m", kRevision);
    hwid_transform();
    hwid_retry();
    create_gpio();
    require_gpio();
}
