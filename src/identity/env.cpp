#include "libmarl/env.h"

#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <span>

#include "base/bytes.h"
#include "base/crc32.h"
#include "base/devices.h"
#include "base/diag.h"
#include "base/fd.h"
#include "base/lock.h"
#include "base/module.h"
#include "base/text.h"
#include "identity/env_image.h"
#include "identity/source.h"

namespace {

using namespace marl;

constexpr const char* kDevice = "/dev/mtd/1";
constexpr unsigned long kSetCameraModule = 0x80045609;

constexpr uint32_t kFlashOffset = 0x40000;
constexpr uint32_t kImageSize = EnvImage::kSize;
constexpr size_t kCrcSize = 4;
constexpr size_t kCrcCovered =
    0x4000;  // the boot loader checks this much of the image, whatever the list's length

struct EnvDevice {
    int fd;
    uint32_t devoff;      // place in the whole flash
    uint32_t env_size;    // size of the image, of its transfers and of the erase
    uint32_t erase_size;  // alignment that the device asks for
};

// Written by the first load, which `load_lock` guards, and by the setters, which belong to one thread
// at a time.
struct {
    pthread_mutex_t load_lock = PTHREAD_MUTEX_INITIALIZER;
    EnvDevice device{-1, 0, 0, 0x1000};
    EnvImage image;
    bool loaded = false;  // a whole image has been read; it is kept for the life of the process
} constinit g_env;

// False with errno set.
bool read_image(int fd) {
    if (!g_env.image.allocate()) {
        diag::error({module::kEnvironment, "env_init", 161}, "Cannot malloc memory for buff at %s\n",
                    "env_init");
        return false;
    }
    if (read_whole(fd, g_env.image.bytes(), kImageSize)) return true;
    const int error = errno;
    diag::library_system_error("read mtd", error);
    g_env.image.release();
    errno = error;
    return false;
}

// The variables: the image behind its checksum. Indices into it are the data indices of the list. The list
// ends at the first variable that starts with a NUL, and with the image at the latest.
std::span<uint8_t> variables() { return {g_env.image.bytes() + kCrcSize, kImageSize - kCrcSize}; }

size_t end_of_variable(size_t index) {
    const auto data = variables();
    return static_cast<size_t>(std::find(data.begin() + static_cast<ptrdiff_t>(index), data.end(), 0) -
                               data.begin());
}

bool is_variable(size_t index) {
    const auto data = variables();
    return index < data.size() && data[index] != 0;
}

// Where the list ends: the first variable that starts with a NUL, or the end of the image.
size_t end_of_list() {
    size_t index = 0;
    while (is_variable(index)) index = end_of_variable(index) + 1;
    return std::min(index, variables().size());
}

// What a look-up reaches: the list, and the NUL that ends it.
void give_back_unused() { g_env.image.give_back_behind(kCrcSize + end_of_list() + 1); }

// 0, or the error that keeps the image from being loaded; errno says the same.
int load() {
    const MutexLock lock(g_env.load_lock);
    if (g_env.loaded) return 0;
    const int fd = open_file(kDevice, O_RDWR);
    if (fd < 0) {
        const int error = errno;
        diag::library_system_error("open mtd", error);
        return errno = error;
    }
    if (!read_image(fd)) {
        const int error = errno;
        close(fd);
        return errno = error;
    }
    g_env.device.fd = fd;
    g_env.device.devoff = kFlashOffset;
    g_env.device.env_size = kImageSize;
    give_back_unused();
    g_env.loaded = true;
    return 0;
}

// Matches `key` against the variable at `index`: the index of the value's first byte. A key that brings its
// own '=' matches up to it.
std::optional<size_t> match_name(const char* key, size_t index) {
    const auto data = variables();
    for (; index < data.size(); ++index, ++key) {
        if (*key == '\0' && data[index] == '=') return index + 1;
        if (*key == '\0' || static_cast<uint8_t>(*key) != data[index]) return std::nullopt;
        if (*key == '=') return index + 1;
    }
    return std::nullopt;
}

struct Variable {
    size_t start;
    size_t value;
    size_t end;  // of its NUL, or the end of the data
};

std::optional<Variable> find_variable(const char* key) {
    for (size_t index = 0; is_variable(index);) {
        const size_t end = end_of_variable(index);
        if (const auto value = match_name(key, index)) return Variable{index, *value, end};
        index = end + 1;
    }
    return std::nullopt;
}

// Closes the gap that a variable leaves by moving the rest of the list, up to and with its double NUL, down
// over it; what lies behind the list stays as it is.
void remove_variable(const Variable& variable) {
    const auto data = variables();
    size_t next = variable.end + 1;
    size_t to = variable.start;
    while (is_variable(next)) {
        const size_t end = std::min(end_of_variable(next) + 1, data.size());
        memmove(&data[to], &data[next], end - next);
        to += end - next;
        next = end;
    }
    data[to] = 0;
    if (to == 0 || data[to - 1] != 0) data[to + 1] = 0;
}

bool append_variable(const char* name, const char* value) {
    const auto data = variables();
    const size_t need = strlen(name) + strlen(value) + 3;  // '=' and two NULs
    const size_t position = end_of_list();
    if (need > data.size() - position) return false;
    uint8_t* to = &data[position];
    memset(to, 0, need);
    memcpy(to, name, strlen(name));
    to[strlen(name)] = '=';
    memcpy(to + strlen(name) + 1, value, strlen(value));
    return true;
}

bool do_setenv(const char* name, const char* value) {
    if (const auto old = find_variable(name)) remove_variable(*old);
    if (!append_variable(name, value)) {
        diag::warn({module::kEnvironment, "do_setenv", 285},
                   "## Error: environment overflow, \"%s\" deleted\n", name);
        return false;
    }
    store_le(g_env.image.bytes(), crc32({g_env.image.bytes() + kCrcSize, kCrcCovered - kCrcSize}));
    return true;
}

bool do_saveenv() {
    const EnvDevice& device = g_env.device;
    diag::line("[libmarl] Save environment to flash ,Please wait ..");
    diag::line("[libmarl] Note!! don't power off\n");
    const uint32_t start = device.devoff / device.env_size * device.env_size - device.devoff;
    if (start % device.env_size != 0) {
        diag::error({module::kEnvironment, "do_saveenv", 329}, "%s: address doesn't align 0x1000 align\n",
                    "do_saveenv");
        return false;
    }
    erase_info_user range{start, device.env_size};
    if (control(device.fd, MEMERASE, &range) < 0) {
        diag::library_system_error("mem erase", errno);
        return false;
    }
    if (lseek(device.fd, static_cast<off_t>(start), SEEK_SET) < 0 ||
        !write_whole(device.fd, g_env.image.bytes(), device.env_size)) {
        diag::library_system_error("write mtd", errno);
        return false;
    }
    diag::line("[libmarl] Save Ok\n");
    return true;
}

bool is_settable(const char* name, const char* value) {
    if (name == nullptr || value == nullptr) return false;
    const size_t length = strlen(name);
    return length > 0 && length <= MARL_ENV_NAME_MAX && strchr(name, '=') == nullptr &&
           strlen(value) <= MARL_ENV_VALUE_MAX;
}

void tell_camera_module(int fd, int32_t module, const char* message) {
    control(fd, kSetCameraModule, &module);
    diag::line(message);
}

}  // namespace

marl::Answer marl::look_up_environment(const char* key, std::span<char> value) {
    if (const int error = load(); error != 0) return is_absent(error) ? Answer::None : Answer::Failed;
    const auto found = find_variable(key);
    if (!found) return Answer::None;
    const auto* text = reinterpret_cast<const char*>(&variables()[0]) + found->value;
    copy_text(value.data(), value.size(), {text, found->end - found->value});
    return Answer::Given;
}

bool marl::environment_is_loaded() {
    const MutexLock lock(g_env.load_lock);
    return g_env.loaded;
}

int env_init() { return load() == 0 ? 0 : -1; }

int get_armboot_para(const char* key, char* value, uint32_t size) {
    if (key == nullptr || value == nullptr || size == 0) return -1;
    return look_up_environment(key, {value, size}) == Answer::Given ? 0 : -1;
}

int __set_armboot_para(const char* name, const char* value) {
    if (!is_settable(name, value)) return -1;
    if (env_init() < 0) return 0;
    g_env.image.fetch_back();
    if (!do_setenv(name, value)) {
        diag::error({module::kEnvironment, "__set_armboot_para", 410}, "set environmeent to flash fail\n");
    } else if (!do_saveenv()) {
        diag::error({module::kEnvironment, "__set_armboot_para", 420}, "save environmeent to flash fail\n");
    }
    give_back_unused();
    return 0;
}

int set_armboot_para(const char* name, const char* value) {
    if (!is_settable(name, value)) return -1;
    {
        const Fd front_end(open_file(device::kVideoFrontEnd, O_RDWR));
        if (!front_end.is_open()) return -1;
        if (strstr(value, "camera=Qorzo") != nullptr) {
            tell_camera_module(front_end.get(), 0, "[libmarl] ----qorzo----");
        }
        if (strstr(value, "camera=Hitachi") != nullptr) {
            tell_camera_module(front_end.get(), 1, "[libmarl] ----HITACHI----");
        }
    }
    return __set_armboot_para(name, value);
}

int set_armboot_para_kv(const char* text) {
    const char* separator = text != nullptr ? strchr(text, '=') : nullptr;
    if (separator == nullptr || separator - text > MARL_ENV_NAME_MAX) return -1;
    char name[MARL_ENV_NAME_MAX + 1];
    copy_text(name, sizeof name, {text, static_cast<size_t>(separator - text)});
    if (!is_settable(name, separator + 1)) return -1;
    diag::out("[libmarl] %s\n", separator + 1);
    return __set_armboot_para(name, separator + 1);
}
