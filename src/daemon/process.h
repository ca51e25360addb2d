#pragma once

namespace sentrel {

// Makes the process independent of what started it, before anything else runs in it:
//
// - Standard output and standard error become descriptions of the daemon's own that cannot block, so that no
//   shell command that it starts, and waits for, hangs on a console that nobody reads. A command's text that a
//   console does not take at once is lost. Regular files stay as they are.
// - A hang-up of the terminal does not end it, nor a log file at its size limit; the end of a child can be
//   waited for even if it was started with SIGCHLD ignored.
void prepare_process();

}  // namespace sentrel
