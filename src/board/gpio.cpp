#include "libmarl/gpio.h"

#include <fcntl.h>
#include <unistd.h>

#include "base/devices.h"
#include "base/diag.h"
#include "base/fd.h"
#include "base/module.h"
#include "base/object.h"

constinit GPIO* pg_gpio = nullptr;

namespace {

using namespace marl;

constinit ObjectKind g_kind;

constexpr unsigned long kSetInterruptMode = 1;
constexpr uint32_t kHighestInterruptMode = 3;

struct PrivateRecord {
    ObjectCommon common;
};

ObjectCommon& common_of(GPIO* thiz) { return static_cast<PrivateRecord*>(thiz->priv)->common; }

bool is_usable(GPIO* thiz, const char* operation, Need need) {
    return check_object(g_kind, thiz, operation, need);
}

int set_interrupt_mode(GPIO* thiz, uint32_t line, uint32_t mode) {
    uint8_t request[] = {static_cast<uint8_t>(line), static_cast<uint8_t>(mode), 0};
    return control(common_of(thiz).fd, kSetInterruptMode, request);
}

GPIO* make_object() {
    GPIO* object = allocate_object<GPIO, PrivateRecord>(
        g_kind, "GPIO", [](const char* type) { diag::err("malloc(sizeof(%s))", type); });
    if (object == nullptr) return nullptr;
    *object = {
        object->priv,  gpio_addref,           gpio_release,          gpio_open, gpio_close, gpio_readbit,
        gpio_writebit, gpio_interrupt_enable, gpio_interrupt_disable};
    return object;
}

}  // namespace

int createGPIO(GPIO** out) {
    if (object_exists(g_kind)) {
        diag::error({module::kGpio, "createGPIO", 258}, "Error:OBJ is created\n");
        return -1;
    }
    if (out == nullptr) {
        diag::error({module::kGpio, "createGPIO", 264}, "Obiect is NULL\n");
        return -1;
    }
    *out = make_object();
    if (*out == nullptr) return -1;
    if ((*out)->open(*out) < 0) {
        free_object(g_kind);
        *out = nullptr;
        return -1;
    }
    return 0;
}

int gpio_addref(GPIO* thiz) {
    if (!is_usable(thiz, "gpio_addref", Need::Private)) return -1;
    return add_reference(common_of(thiz));
}

int gpio_release(GPIO* thiz) {
    if (!is_usable(thiz, "gpio_release", Need::Private)) return -1;
    ObjectCommon& common = common_of(thiz);
    if (!drop_reference(common)) return 0;
    if (common.fd > 0) close(common.fd);
    retire_object(g_kind);
    return 0;
}

int gpio_open(GPIO* thiz) {
    if (!is_usable(thiz, "gpio_open", Need::Private)) return -1;
    ObjectCommon& common = common_of(thiz);
    if (common.fd > 0) {
        diag::out("\033[1;33m[libmarl] WARN : warn: %s  GPIO has opend already \n\033[m", "gpio_open");
        return 0;
    }
    common.fd = open_file(device::kGpio, O_RDWR);
    if (common.fd < 0) {
        diag::err("open %s ", device::kGpio);
        return -1;
    }
    return 0;
}

int gpio_close(GPIO* thiz) {
    if (!is_usable(thiz, "gpio_close", Need::Descriptor)) return -1;
    ObjectCommon& common = common_of(thiz);
    if (common.refcount < 1) return -1;
    close(common.fd);
    common.fd = -1;
    return 0;
}

int gpio_readbit(GPIO* thiz, uint32_t line) {
    if (!is_usable(thiz, "gpio_readbit", Need::Descriptor) || line >= MARL_GPIO_LINES) return -1;
    auto level = static_cast<uint8_t>(line);
    const ssize_t n = read_some(common_of(thiz).fd, &level, sizeof level);
    return n < 1 ? -1 : level;  // no byte is no level
}

int gpio_writebit(GPIO* thiz, uint32_t line, uint32_t level) {
    if (!is_usable(thiz, "gpio_writebit", Need::Descriptor)) return -1;
    if (line >= MARL_GPIO_LINES || level > 1) return -1;
    const uint8_t request[] = {static_cast<uint8_t>(line), static_cast<uint8_t>(level)};
    return static_cast<int>(write_some(common_of(thiz).fd, request, sizeof request));
}

int gpio_interrupt_enable(GPIO* thiz, uint32_t line, uint32_t mode) {
    if (!is_usable(thiz, "gpio_interrupt_enable", Need::Descriptor)) return -1;
    if (line >= MARL_GPIO_LINES || mode > kHighestInterruptMode) return -1;
    return set_interrupt_mode(thiz, line, mode);
}

int gpio_interrupt_disable(GPIO* thiz, uint32_t line) {
    if (!is_usable(thiz, "gpio_interrupt_disable", Need::Descriptor) || line >= MARL_GPIO_LINES) return -1;
    return set_interrupt_mode(thiz, line, 0);
}

int gpio_get_bit(uint32_t line) {
    if (pg_gpio == nullptr) {
        diag::err("pg_gpio==NULL\n");
        return -1;
    }
    return pg_gpio->readbit(pg_gpio, line);
}

int gpio_set_bit(uint32_t line, uint32_t level) {
    if (pg_gpio == nullptr) {
        diag::err("pg_gpio==NULL\n");
        return -1;
    }
    return pg_gpio->writebit(pg_gpio, line, level);
}
