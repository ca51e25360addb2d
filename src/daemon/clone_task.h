#pragma once

namespace sentrel {

// Starts `fn(arg)` as a task that shares the daemon's memory, files, file-system context and signal handlers
// but is no thread of it: it has a task id of its own, and the daemon gets SIGCHLD when it ends.
//
// It runs on 8096 bytes of stack and shares the creator's thread-local storage, errno and the allocator's
// cache included. What runs there makes plain system calls only: no heap, no stdio, no pthread locks, no
// trust in errno.
//
// Stores the task id through `out_id` and returns 0. -1 when there is no memory for the stack (`*out_id`
// is left alone), or, after "create failed:%d\n" and with 0 in `*out_id`, when the task cannot be
// created. The stack belongs to the task for as long as the board runs; only that of a task that never
// came to be is freed.
int clone_thread_create(int* out_id, int (*fn)(void*), void* arg);

}  // namespace sentrel
