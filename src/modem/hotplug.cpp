// Waiting for the modem by the kernel's hot-plug events: datagrams of "ACTION@DEVICEPATH" and a NUL, then
// variables that are of no interest here.
#include <fcntl.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "base/clock.h"
#include "base/diag.h"
#include "base/fd.h"
#include "base/text.h"
#include "libmarl/modem.h"
#include "modem/models.h"
#include "modem/record.h"
#include "modem/state.h"

namespace {

using namespace marl;

constexpr size_t kEventBufferSize = 4096;
constexpr int kReceiveBufferSize = 16384;
constexpr uint32_t kKernelEvents = 1;  // multicast group
constexpr uint32_t kKernel = 0;        // the kernel's port number
constexpr uint32_t kAnyPort = 0;

constexpr uint32_t kPollMs = 100;
constexpr uint32_t kPollsPerTest = 20;
constexpr uint32_t kQuietPolls = 10;  // after the last event, when there is no limit
constexpr int kEventsPerPoll = 64;    // more than the receive buffer holds

constexpr size_t kDirectorySize = 128;
constexpr size_t kAttributePathSize = kDirectorySize + 16;
constexpr size_t kAttributeSize = 128;
constexpr size_t kShownPosition = 5;

struct Attribute {
    const char* name;
    ModuleText text;
    bool required;
};

constexpr Attribute kAttributes[] = {
    {"manufacturer", text_of<&Usb3gModule::manufacturer>, false},
    {"product", text_of<&Usb3gModule::product>, false},
    {"version", text_of<&Usb3gModule::version>, false},
    {"idVendor", text_of<&Usb3gModule::vendor_id>, true},
    {"idProduct", text_of<&Usb3gModule::product_id>, true},
    {"speed", text_of<&Usb3gModule::speed>, true},
};

// The events of a batch, one behind the other.
class Events {
  public:
    Events() : bytes_(static_cast<char*>(malloc(kEventBufferSize))) {}
    ~Events() { free(bytes_); }
    Events(const Events&) = delete;
    Events& operator=(const Events&) = delete;

    bool has_memory() const { return bytes_ != nullptr; }
    void clear() { used_ = 0; }

    // Takes the events that are waiting; whether there was one. No more than could wait when it began, so
    // that a storm of them does not hold it. Any program may send such datagrams: only the kernel's count.
    bool gather(int fd) {
        const size_t used_before = used_;
        for (int taken = 0; taken < kEventsPerPoll; ++taken) {
            const size_t room = kEventBufferSize - used_;
            sockaddr_nl sender{};
            const ssize_t size = receive(fd, bytes_ + used_, room, sender);
            if (size < 0) break;
            const bool counts = sender.nl_pid == kKernel && static_cast<size_t>(size) <= room;
            if (counts) used_ += static_cast<size_t>(size);
        }
        return used_ > used_before;
    }

    // The device path of the first event.
    std::string_view device_path() const {
        const std::string_view event = field_text(bytes_, used_);
        return rest_of(event, event.find('/'));
    }

  private:
    // An event is received whole, because a datagram socket throws away what a receive leaves of it;
    // MSG_TRUNC tells its size all the same.
    static ssize_t receive(int fd, char* event, size_t room, sockaddr_nl& sender) {
        auto* address = reinterpret_cast<sockaddr*>(&sender);
        return repeat_interrupted([&] {
            socklen_t length = sizeof sender;
            return recvfrom(fd, event, room, MSG_DONTWAIT | MSG_TRUNC, address, &length);
        });
    }

    char* bytes_;
    size_t used_ = 0;
};

// A name ".." in a path leads out of the devices.
bool leads_upwards(std::string_view path) {
    constexpr std::string_view kUpwards = "/..";
    for (size_t at = path.find(kUpwards); at != std::string_view::npos; at = path.find(kUpwards, at + 1)) {
        const std::string_view rest = rest_of(path, at + kUpwards.size());
        if (rest.empty() || rest.starts_with('/')) return true;
    }
    return false;
}

// The device's place is the last part of its path; the parts of a device itself go on
// behind it ("1-1.1:1.0").
bool is_modem_position(std::string_view device_path) {
    if (!modem_is_behind_hub()) return true;
    const std::string_view position = rest_of(device_path, device_path.rfind('/') + 1);
    const std::string_view shown = first_of(position, kShownPosition);
    diag::out("[libmarl] busTmp = %.*s------\n", static_cast<int>(shown.size()), shown.data());
    return position == "1-1.1" || (position == "1-1.2" && modem_models::has_modem_on_any_port());
}

// False with errno set when the attribute cannot be read or, its device just gone, is empty.
bool read_attribute(const char* directory, const Attribute& attribute, Usb3gModule& module) {
    char path[kAttributePathSize];
    snprintf(path, sizeof path, "%s/%s", directory, attribute.name);
    const Fd file(open_file(path, O_RDONLY));
    if (!file.is_open()) return false;
    LineReader reader(file.get());
    char line[kAttributeSize];
    errno = ENODATA;
    if (!reader.next(line, sizeof line)) return false;
    std::string_view value = line;
    if (value.ends_with('\n')) value.remove_suffix(1);
    const std::span<char> text = attribute.text(module);
    copy_text(text.data(), text.size(), rest_of(value, value.find_first_not_of(' ')));
    return true;
}

bool read_attributes(std::string_view device_path, Usb3gModule& module) {
    if (leads_upwards(device_path)) return false;
    char directory[kDirectorySize];
    const int length = snprintf(directory, sizeof directory, "/sys%.*s", static_cast<int>(device_path.size()),
                                device_path.data());
    if (static_cast<size_t>(length) >= sizeof directory) return false;
    for (const Attribute& attribute : kAttributes) {
        if (read_attribute(directory, attribute, module) || !attribute.required) continue;
        diag::library_system_error("Open", errno);
        return false;
    }
    return true;
}

// Fills the record from the batch when its first event is that of a modem; otherwise the batch goes.
bool is_answered_by(Events& events, Usb3gModule& module) {
    Usb3gModule found = {};
    const std::string_view path = events.device_path();
    if (!path.empty() && is_modem_position(path) && read_attributes(path, found)) {
        module = found;
        return true;
    }
    events.clear();
    return false;
}

bool bind_to_events(int fd, uint32_t port) {
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_pid = port;
    address.nl_groups = kKernelEvents;
    return bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

int open_event_socket() {
    const int fd = open_socket(AF_NETLINK, SOCK_DGRAM, NETLINK_KOBJECT_UEVENT);
    if (fd < 0) {
        diag::library_system_error("socket", errno);
        return -1;
    }
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &kReceiveBufferSize, sizeof kReceiveBufferSize);
    // Another socket of the process may hold the number of this thread, whichever its thread was.
    if (bind_to_events(fd, static_cast<uint32_t>(gettid()))) return fd;
    if (errno == EADDRINUSE && bind_to_events(fd, kAnyPort)) return fd;
    diag::library_system_error("bind", errno);
    close(fd);
    return -1;
}

bool wait_for_polls(int fd, uint32_t polls, Events& events, Usb3gModule& module) {
    for (uint32_t poll = 1; poll <= polls; ++poll) {
        events.gather(fd);
        sleep_ms(kPollMs);
        const bool due = poll % kPollsPerTest == 0 || poll == polls;
        if (due && is_answered_by(events, module)) return true;
    }
    return false;
}

void wait_without_end(int fd, Events& events, Usb3gModule& module) {
    uint32_t quiet_polls_left = 0;
    for (;;) {
        if (events.gather(fd)) quiet_polls_left = kQuietPolls;
        sleep_ms(kPollMs);
        if (quiet_polls_left > 0) --quiet_polls_left;
        if (quiet_polls_left == 0 && is_answered_by(events, module)) return;
    }
}

bool wait_for_event(int polls, Events& events, Usb3gModule& module) {
    const Fd fd(open_event_socket());
    if (!fd.is_open()) return false;
    if (polls > 0) return wait_for_polls(fd.get(), static_cast<uint32_t>(polls), events, module);
    wait_without_end(fd.get(), events, module);
    return true;
}

}  // namespace

int wait_3g_usb_device(Usb3gModule* module, int polls) {
    if (module == nullptr) return -1;
    check_usb_hub_model();
    Events events;
    if (!events.has_memory()) {
        diag::library_system_error("malloc", errno);
        return -1;
    }
    if (find_3g_usb_device(module) == 1 || wait_for_event(polls, events, *module) ||
        find_3g_usb_device(module) == 1) {
        identify_3g_modem(module);
        return 0;
    }
    g_modem_type = kUnknownModem;
    return -1;
}
