// The two video processes prove that they are alive by changing a 32-bit word in a file of their own. A word
// that stands still for four checks reboots the board, unless a firmware upgrade runs.
//
// A check that cannot be made counts nothing: a file that cannot be opened or mapped, or that is shorter than
// the word because its process truncated it, says nothing about the process, and the next check is 5.2 s
// away. A file that was deleted and made anew is noticed when the old word stands still; the monitor then
// moves to the new file instead of counting against a process that lives. A file that was only deleted is
// watched on.
#pragma once

namespace sentrel {

// Watch /tmp/mediaguard_to_sentrel, where a word of 0 is a missing heartbeat too (the sixth in a row
// reboots), and /tmp/encode_to_sentrel, where 0 means that encode has not begun. Both return 0, or
// not at all.
int monitor_mediaguard();
int monitor_encode();

}  // namespace sentrel
