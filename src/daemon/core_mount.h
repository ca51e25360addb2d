// The `coremnt` command of the boot environment: run once, on a thread of its own, and told to stop 20 s
// later. A command of more than 255 characters is not run, because a part of a command may be another
// command; a line says so.
#pragma once

namespace sentrel {

// Starts the thread `corePthread`, which runs the command and ends. "Create corePthread failed"
// when it cannot.
void start_core_mount();

// One pass of the loop: counts 100 passes from the first that sees the command started, then, once, prints
// "exit mount" and runs "killall mount", whether or not the command still runs.
void watch_core_mount();

}  // namespace sentrel
