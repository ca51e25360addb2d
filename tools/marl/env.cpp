// The boot environment. The library answers for one variable at a time, forgets none and does not tell whether what
// it has saved is in flash; for that the image is read here, as the boot loader does.
#include "env.h"

#include <fcntl.h>
#include <libmarl.h>
#include <mtd/mtd-user.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "base/crc32.h"
#include "files.h"
#include "handlers.h"
#include "messages.h"
#include "results.h"

namespace tool {
namespace {

constexpr const char* kDevice = "/dev/mtd/1";
constexpr size_t kImageSize = 0x20000;
constexpr size_t kCrcSize = 4;
constexpr size_t kCrcCovered = 0x4000;  // the boot loader checks this much, whatever the list's length

// What is in flash.
class Image {
  public:
    Image() : bytes_(static_cast<char*>(malloc(kImageSize + 1))) {}
    ~Image() { free(bytes_); }
    Image(const Image&) = delete;
    Image& operator=(const Image&) = delete;

    bool read() {
        const File device(kDevice, O_RDONLY);
        if (bytes_ == nullptr || !device.is_open() || !device.read_at(bytes_, kImageSize, 0)) return false;
        bytes_[kImageSize] = '\0';
        return true;
    }

    // Erases and writes the device, with the sum of the present list.
    bool save() {
        const uint32_t sum = marl::crc32({reinterpret_cast<uint8_t*>(list()), kCrcCovered - kCrcSize});
        for (size_t i = 0; i < kCrcSize; ++i) bytes_[i] = static_cast<char>(sum >> 8 * i);
        const File device(kDevice, O_RDWR);
        erase_info_user whole{0, kImageSize};
        return device.is_open() && ioctl(device.descriptor(), MEMERASE, &whole) == 0 &&
               device.write_at(bytes_, kImageSize, 0);
    }

    // The variables, "name=value" each. An erased image has none.
    char* first() const { return valid(list()); }
    char* next(char* variable) const { return valid(variable + strlen(variable) + 1); }

    char* find(std::string_view name) const {
        for (char* variable = first(); variable != nullptr; variable = next(variable)) {
            if (strncmp(variable, name.data(), name.size()) == 0 && variable[name.size()] == '=')
                return variable;
        }
        return nullptr;
    }

    void remove(char* variable) {
        char* end = variable;
        for (char* after = next(variable); after != nullptr; after = next(after)) end = after;
        char* rest = variable + strlen(variable) + 1;
        end += strlen(end) + 1;  // behind the last variable
        if (rest > end) rest = end;
        const auto left = static_cast<size_t>(end - rest);
        memmove(variable, rest, left);
        memset(variable + left, 0, static_cast<size_t>(rest - variable));
    }

  private:
    char* list() const { return bytes_ + kCrcSize; }
    char* valid(char* variable) const {
        const bool is_inside = variable < bytes_ + kImageSize;
        return is_inside && *variable != '\0' && *variable != '\xFF' ? variable : nullptr;
    }

    char* bytes_;
};

Exit unreadable() { return failed_system("the boot environment, %s, cannot be read", kDevice); }

// Whether the flash has the variable with this value.
bool is_stored(const char* name, const char* value) {
    Image image;
    if (!image.read()) return false;
    const char* variable = image.find(name);
    return variable != nullptr && strcmp(variable + strlen(name) + 1, value) == 0;
}

void show_change(const char* name, bool has_changed) {
    const results::JsonOnly all;
    results::field("name", name);
    results::flag("changed", has_changed);
}

}  // namespace

Exit env_list(const Request&) {
    Image image;
    if (!image.read()) return unreadable();
    const results::JsonOnly structure;
    results::begin_list("variables");
    for (char* variable = image.first(); variable != nullptr; variable = image.next(variable)) {
        if (!results::is_json()) {
            results::raw(variable, strlen(variable));
            results::print("\n");
            continue;
        }
        char* equals = strchr(variable, '=');
        if (equals != nullptr) *equals = '\0';
        results::begin();
        results::field("name", variable);
        results::field("value", equals != nullptr ? equals + 1 : nullptr);
        results::end();
        if (equals != nullptr) *equals = '=';
    }
    results::end_list();
    return kDone;
}

Exit env_get(const Request& request) {
    static char value[kImageSize];
    if (env_init() != 0) return unreadable();
    if (get_armboot_para(request.word(0), value, sizeof value) != 0) {
        return failed("there is no boot variable %s", request.word(0));
    }
    if (!results::is_json()) results::raw(value, strlen(value));
    results::print("\n");
    const results::JsonOnly rest;
    results::field("name", request.word(0));
    results::field("value", value);
    return kDone;
}

Exit set_variable(const char* name, const char* value) {
    if (env_init() != 0) return unreadable();
    const bool is_new = !is_stored(name, value);
    if (is_new && __set_armboot_para(name, value) != 0) return failed("%s cannot be set", name);
    if (is_new && !is_stored(name, value)) {
        return failed("%s is not in flash as it was set: it did not fit, or flash failed", name);
    }
    show_change(name, is_new);
    return kDone;
}

Exit env_set(const Request& request) { return set_variable(request.word(0), request.word(1)); }

Exit env_unset(const Request& request) {
    const char* name = request.word(0);
    Image image;
    if (!image.read()) return unreadable();
    bool has_changed = false;
    while (char* variable = image.find(name)) {
        image.remove(variable);
        has_changed = true;
    }
    if (has_changed && !image.save()) return failed_system("%s cannot be written", kDevice);
    if (has_changed && (!image.read() || image.find(name) != nullptr))
        return failed("%s is still in flash", name);
    show_change(name, has_changed);
    return kDone;
}

}  // namespace tool
