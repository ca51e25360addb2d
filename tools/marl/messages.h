// What the tool has to tell beside its results: standard error.
#pragma once

#include "command.h"

namespace tool {

// "marl: TEXT\n" in one write. The results say so by their type: `return failed("...")`.
void note(const char* format, ...) __attribute__((format(printf, 1, 2)));
Exit failed(const char* format, ...) __attribute__((format(printf, 1, 2)));
Exit refused(const char* format, ...) __attribute__((format(printf, 1, 2)));

// The same with the text of the present errno behind it.
Exit failed_system(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Asks before something is destroyed; without a terminal to ask at, --yes has to have said so.
bool may_destroy(const Request& request);

// From now on Ctrl-C and the like only make is_interrupted() true, so that a command ends in order.
void watch_for_interrupts();
bool is_interrupted();

}  // namespace tool
