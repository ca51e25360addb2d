// The board's watchdog and clock, as real character devices of the kernel below /dev/misc: served from here through
// CUSE, so that programs reach them by plain open() and ioctl(), with nothing between them and the C library.
//
// The watchdog writes each request and its moment to standard output: "REQUEST NANOSECONDS", of the monotonic clock. The
// clock goes on from a moment of the year 2031, whatever the machine's own says.
#include <fcntl.h>
#include <linux/fuse.h>
#include <linux/rtc.h>
#include <poll.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>

namespace {

constexpr time_t kClockStart = 1936163289;  // 2031-05-10 07:08:09 UTC

int64_t monotonic_ns() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

// The answer to an ioctl: a result, and what is stored for the caller.
struct Answer {
    int result;
    rtc_time clock;
    size_t size;
};

Answer watchdog(uint32_t request) {
    printf("%u %lld\n", request, static_cast<long long>(monotonic_ns()));
    fflush(stdout);
    return {};
}

Answer clock_of_board(uint32_t request) {
    static const int64_t start = monotonic_ns();
    if (request != RTC_RD_TIME) return {-EINVAL, {}, 0};
    const time_t now = kClockStart + static_cast<time_t>((monotonic_ns() - start) / 1'000'000'000);
    tm parts{};
    gmtime_r(&now, &parts);
    return {0,
            {parts.tm_sec, parts.tm_min, parts.tm_hour, parts.tm_mday, parts.tm_mon, parts.tm_year,
             parts.tm_wday, parts.tm_yday, 0},
            sizeof(rtc_time)};
}

class Device {
  public:
    Device(const char* name, Answer (*answer)(uint32_t request))
        : name_(std::string("DEVNAME=misc!") + name), answer_(answer), fd_(open("/dev/cuse", O_RDWR)) {
        if (fd_ < 0) perror("/dev/cuse");
        if (fd_ < 0) exit(1);
    }
    int fd() const { return fd_; }

    void serve() {
        alignas(8) static char request[1 << 17];
        const ssize_t size = read(fd_, request, sizeof request);
        if (size < static_cast<ssize_t>(sizeof(fuse_in_header))) return;
        const auto& header = *reinterpret_cast<const fuse_in_header*>(request);
        handle(header, request + sizeof header);
    }

  private:
    void handle(const fuse_in_header& header, const char* body) {
        switch (header.opcode) {
            case CUSE_INIT:
                return introduce(header, *reinterpret_cast<const cuse_init_in*>(body));
            case FUSE_OPEN: {
                fuse_open_out out{};
                return reply(header, 0, &out, sizeof out);
            }
            case FUSE_IOCTL:
                return control(header, *reinterpret_cast<const fuse_ioctl_in*>(body));
            case FUSE_WRITE: {
                fuse_write_out out{reinterpret_cast<const fuse_write_in*>(body)->size, 0};
                return reply(header, 0, &out, sizeof out);
            }
            case FUSE_RELEASE:
            case FUSE_FLUSH:
                return reply(header, 0, nullptr, 0);
            case FUSE_INTERRUPT:
                return;
            default:
                return reply(header, -ENOSYS, nullptr, 0);
        }
    }

    void introduce(const fuse_in_header& header, const cuse_init_in& in) {
        cuse_init_out out{};
        out.major = in.major;
        out.minor = in.minor;
        out.max_read = out.max_write = 4096;
        reply(header, 0, &out, sizeof out, name_.c_str(), name_.size() + 1);
    }

    void control(const fuse_in_header& header, const fuse_ioctl_in& in) {
        const Answer answer = answer_(in.cmd);
        fuse_ioctl_out out{answer.result, 0, 0, 0};
        reply(header, 0, &out, sizeof out, &answer.clock, answer.size);
    }

    void reply(const fuse_in_header& header, int error, const void* body, size_t size,
               const void* tail = nullptr, size_t tail_size = 0) {
        fuse_out_header out{static_cast<uint32_t>(sizeof(fuse_out_header) + size + tail_size), error,
                            header.unique};
        const iovec parts[] = {
            {&out, sizeof out}, {const_cast<void*>(body), size}, {const_cast<void*>(tail), tail_size}};
        if (writev(fd_, parts, std::size(parts)) < 0) perror("cuse");
    }

    std::string name_;
    Answer (*answer_)(uint32_t request);
    int fd_;
};

}  // namespace

int main() {
    Device devices[] = {{"wdt", watchdog}, {"rtc", clock_of_board}};
    pollfd waiting[std::size(devices)];
    for (size_t i = 0; i < std::size(devices); ++i) waiting[i] = {devices[i].fd(), POLLIN, 0};
    for (;;) {
        poll(waiting, std::size(devices), -1);
        for (size_t i = 0; i < std::size(devices); ++i) {
            if ((waiting[i].revents & POLLIN) != 0) devices[i].serve();
        }
    }
}
