// The simulated board as a test program sees it. Link libmarlsim first, so that its open() and friends
// come before those of the C library.
#pragma once

#include <string>

#define SIM_EXPORT __attribute__((visibility("default")))

namespace sim {

// A new board: fresh files, time back to 0, empty journal, no faults. Descriptors of devices that the program
// still holds go on working; a clone task of the board before is killed.
void load(const char* script);

// The same board switched on again: what lasts is as it was.
void restart(const char* script);

// Applies further script lines at the present board time.
void run(const char* script_lines);

// The same with what the compiler, which is no part of the board, has made of them.
SIM_EXPORT void start_anew(std::string orders);
SIM_EXPORT void start_again(std::string orders);
SIM_EXPORT void follow(std::string orders);

SIM_EXPORT const char* root();
SIM_EXPORT std::string journal();
SIM_EXPORT void clear_journal();
SIM_EXPORT double now();

// True when open() of this process is the board's: tests must not go on otherwise.
SIM_EXPORT bool in_place();

// By which the launcher knows the library.
SIM_EXPORT extern const char build_word[];

}  // namespace sim
