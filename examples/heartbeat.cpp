// A heartbeat writer: tells the supervisor and the watchdog that a video process is alive.
//
//     heartbeat [BEATS]
//
// The supervisor reads a 32-bit word at the start of /tmp/mediaguard_to_sentrel every 5.2 seconds. When it is the same
// four times in a row the board is rebooted, so a process writes another one at least every few seconds, from the very
// loop that must not hang: a thread that only beats would go on when everything else has stopped.
//
// The watchdog resets the board when nobody feeds it. The supervisor arms it and feeds it once, so that it looks after the
// supervisor's start as well; from then on the programs of the device do.

#include <fcntl.h>
#include <libmarl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr const char* kPath = "/tmp/mediaguard_to_sentrel";
constexpr useconds_t kPeriodUs = 1'000'000;

//! [heartbeat]
class Heartbeat {
  public:
    // Never cut (O_TRUNC): the supervisor may look at any moment, and an empty file reads as 0.
    Heartbeat() : file_(open(kPath, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0666)) {}
    ~Heartbeat() {
        if (is_open()) close(file_);
    }
    Heartbeat(const Heartbeat&) = delete;
    Heartbeat& operator=(const Heartbeat&) = delete;

    bool is_open() const { return file_ >= 0; }

    // 0 is left out, also when the count begins anew: it tells that nobody beats yet.
    bool beat() {
        if (++word_ == 0) ++word_;
        return pwrite(file_, &word_, sizeof word_, 0) == static_cast<ssize_t>(sizeof word_);
    }

    uint32_t word() const { return word_; }

  private:
    int file_;
    uint32_t word_ = 0;
};
//! [heartbeat]

}  // namespace

int main(int argc, char** argv) {
    const unsigned long beats = argc > 1 ? strtoul(argv[1], nullptr, 10) : 5;
    Heartbeat heartbeat;
    if (!heartbeat.is_open()) {
        perror(kPath);
        return 1;
    }
    //! [loop]
    for (unsigned long i = 0; i < beats; ++i) {
        if (!heartbeat.beat()) {
            perror(kPath);
            return 1;
        }
        // Refused where the boot variable appauto is 0: there is no watchdog to feed then.
        if (get_appauto() != 0 && wdt_keepalive() < 0) fputs("the watchdog cannot be fed\n", stderr);
        printf("beat %u\n", static_cast<unsigned>(heartbeat.word()));
        usleep(kPeriodUs);  // here the work of a second would be done
    }
    //! [loop]
    return 0;
}
