// A statically linked client whose global constructor already uses the library.
#include <libmarl.h>

#include <cstdio>
#include <cstring>

namespace {

struct Early {
    char model[MARL_MODEL_SIZE + 1] = {};
    int level = gpio_get_bit(7);
    Early() { memcpy(model, HWINFO.product_model, MARL_MODEL_SIZE); }
};

const Early early;

}  // namespace

int main() {
    printf("early model=%s level=%d\n", early.model, early.level);
    return 0;
}
