// Every call of the public headers takes null pointers, each and all, and numbers at their ends without a
// crash. It fails when one is null, with -1 when all are. The list of calls is made from the headers when
// this is built; each combination runs in a process of its own.
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <bit>
#include <climits>
#include <cstddef>
#include <string_view>
#include <type_traits>
#include <utility>

#include "gtest/gtest.h"
#include "libmarl.h"
#include "sim.h"

namespace {

// An argument: null or zeros (an empty text or record) when it is a pointer, else a number.
template <typename T>
T argument(unsigned given, long long number, size_t place) {
    alignas(std::max_align_t) static unsigned char room[6][64U << 10];
    if constexpr (std::is_pointer_v<T>) {
        return reinterpret_cast<T>((given >> place & 1) != 0 ? static_cast<void*>(room[place]) : nullptr);
    } else {
        return static_cast<T>(number);
    }
}

constexpr int kCrash = 1000;  // and its signal

// What a call answers in a process of its own: -1 when it has no answer, or waits for what never comes.
template <typename Call>
int answer_of(const Call& call) {
    const pid_t child = fork();
    if (child == 0) {
        const itimerval limit{{}, {0, 300'000}};
        setitimer(ITIMER_REAL, &limit, nullptr);
        if constexpr (std::is_same_v<decltype(call()), int>) _exit(call());
        call();
        _exit(-1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFSIGNALED(status)) return WTERMSIG(status) == SIGALRM ? -1 : kCrash + WTERMSIG(status);
    return static_cast<int8_t>(WEXITSTATUS(status));
}

constexpr std::string_view kAnswerOtherwise =
    "check_product_model NetSetDNS NetIsBroadcast NetSameSubnet flash_skip_cmos_mark";

template <typename Result, typename... Arguments>
void check(const char* name, Result (*function)(Arguments...)) {
    constexpr unsigned kCount = sizeof...(Arguments);
    const bool otherwise = kAnswerOtherwise.find(name) != kAnswerOtherwise.npos;
    unsigned pointers = 0, place = 0;
    ((pointers |= (std::is_pointer_v<Arguments> ? 1U : 0U) << place++), ...);
    for (const long long number :
         {0LL, 1LL, -1LL, static_cast<long long>(INT_MIN), static_cast<long long>(INT_MAX)}) {
        for (unsigned given = 0; given < 1U << kCount; ++given) {
            // All pointers, none, and all but one; what is given is valid, if empty.
            if ((given & ~pointers) != 0 || (given != 0 && std::popcount(pointers & ~given) > 1)) continue;
            const int answer = answer_of([&]<size_t... kPlaces>(std::index_sequence<kPlaces...>) {
                return [&] { return function(argument<Arguments>(given, number, kPlaces)...); };
            }(std::index_sequence_for<Arguments...>()));
            EXPECT_LT(answer, given == pointers || otherwise ? kCrash : 0)
                << name << ": pointers " << given << ", numbers " << number;
            EXPECT_TRUE(given != 0 || pointers == 0 || otherwise || answer == -1) << name << " " << answer;
        }
        if (pointers == (1U << kCount) - 1) break;  // there are no numbers
    }
}

template <typename Data>
void check(const char* /*name*/, const Data* /*data*/) {}

TEST(Contract, NoArgumentCrashesACall) {
    sim::load("missing /dev/mcu\nmtd 0 boot 0x20000\nenv =1\npresent /dev/mem\ntruncate /dev/mem 29630464\n");
#define MARL_DECLARED(name) check(#name, &name);
#include "declared_names.inc"
}

}  // namespace
