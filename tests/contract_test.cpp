// Every call of the public headers takes null pointers, each and all, and numbers at their ends without a crash. The
// list of calls is made from the headers when this is built; each combination runs in a process of its own.
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <functional>
#include <string>
#include <tuple>
#include <type_traits>

#include "gtest/gtest.h"
#include "libmarl.h"
#include "sim.h"

namespace {

constexpr size_t kArgumentsMost = 6;
constexpr size_t kRoom = 64U << 10;
constexpr long long kNumbers[] = {0, 1, -1, INT_MIN, INT_MAX};

// What all arguments of a call get: one bit a pointer that is not null, and one number.
struct Choice {
    unsigned given;
    long long number;
};

template <typename T>
T argument(const Choice& choice, size_t place) {
    static unsigned char room[kArgumentsMost][kRoom];  // zeros: empty texts and records
    if constexpr (std::is_pointer_v<T>) {
        void* memory = (choice.given >> place & 1) != 0 ? room[place] : nullptr;
        return reinterpret_cast<T>(memory);
    } else {
        return static_cast<T>(choice.number);
    }
}

// How a call with these arguments ends the process that makes it: the signal, 0 when it returns. One that waits for
// what never comes, or ends its process, has done nothing wrong.
int signal_of(const std::function<void()>& call) {
    const pid_t child = fork();
    if (child == 0) {
        const itimerval limit{{}, {0, 300'000}};
        setitimer(ITIMER_REAL, &limit, nullptr);
        call();
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFSIGNALED(status) && WTERMSIG(status) != SIGALRM ? WTERMSIG(status) : 0;
}

template <typename Result, typename... Arguments, size_t... kPlaces>
void try_all(const char* name, Result (*function)(Arguments...), std::index_sequence<kPlaces...>) {
    constexpr unsigned kAll = (1U << sizeof...(Arguments)) - 1;
    constexpr unsigned kPointers = ((std::is_pointer_v<Arguments> ? 1U << kPlaces : 0U) | ... | 0U);
    constexpr bool kHasNumbers = (!std::is_pointer_v<Arguments> || ...);
    for (const long long number : kNumbers) {
        for (unsigned given = 0; given <= kAll; ++given) {
            // All, none, and all but one.
            const unsigned missing = kPointers & ~given;
            const bool wanted = given == 0 || (missing & (missing - 1)) == 0;
            if ((given & ~kPointers) != 0 || !wanted) continue;
            const Choice choice{given, number};
            const int signal = signal_of([&] { function(argument<Arguments>(choice, kPlaces)...); });
            EXPECT_EQ(signal, 0) << name << ": pointers " << given << ", numbers " << number;
        }
        if (!kHasNumbers) break;
    }
}

template <typename Result, typename... Arguments>
void check(const char* name, Result (*function)(Arguments...)) {
    try_all(name, function, std::index_sequence_for<Arguments...>());
}

template <typename Data>
void check(const char* /*name*/, const Data* /*data*/) {}

TEST(Contract, NoArgumentCrashesACall) {
    sim::load("missing /dev/mcu\n");
#define MARL_DECLARED(name) check(#name, &name);
#include "declared_names.inc"
}

}  // namespace
