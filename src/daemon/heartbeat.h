// The two video processes prove that they are alive by changing a 32-bit word in a file of their own. A word
// that stands still for four checks reboots the board, unless a firmware upgrade runs.
//
// A check that cannot be made counts nothing: a file that cannot be opened, mapped or read says nothing about
// the process, and the next check is 5.2 s away. Every check reads the file that bears the name at that
// moment. One that was deleted and made anew is judged as the old one was, by the same last value and the
// same counts, and nothing is written into it: a process that lives has changed the word, one that starts
// over and over without ever beating has not. A file that was only deleted is watched on. In a file shorter
// than the word the missing bytes count as 0, for a process that beats does not leave it so.
#pragma once

namespace sentrel {

// Watch /tmp/mediaguard_to_sentrel, where a word of 0 is a missing heartbeat too (the sixth in a row
// reboots), and /tmp/encode_to_sentrel, where 0 means that encode has not begun. Both return 0, or
// not at all.
int monitor_mediaguard();
int monitor_encode();

}  // namespace sentrel
