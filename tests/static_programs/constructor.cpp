// A statically linked client whose global constructor already uses the library.
#include <libmarl.h>

#include <cstdio>

namespace {

const struct Early {
    Early() { printf("early model=%.32s level=%d\n", HWINFO.product_model, gpio_get_bit(7)); }
} early;

}  // namespace

int main() { return 0; }
