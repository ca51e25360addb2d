// The common main of all tests. Every test starts from a library that was just loaded, so each has a process
// of its own: ctest sees to that.
#include <gtest/gtest.h>

#include <cstdio>

#include "sim.h"

int main(int argc, char** argv) {
    puts("");  // the library has spoken already, and not to the end of its line
    testing::InitGoogleTest(&argc, argv);
    if (sim::in_place()) return RUN_ALL_TESTS();
    fputs("The simulated board is not in place; the tests would reach this machine.\n", stderr);
    return 1;
}
