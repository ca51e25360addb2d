// The task made with clone(): it shares memory and thread-local storage with its creator and has a very small
// stack, which belongs to the program alone. The board does its own work for it on a stack of the board.
#pragma once

#include "clock.h"

extern "C" __attribute__((visibility("hidden"))) void call_on(char* stack_top, void (*function)(void*),
                                                              void* argument);

namespace sim::clone_task {

void use_threads(bool threads);
void prepare();  // outside of any call of the program
int64_t create(int (*function)(void*), void* stack, int flags, void* argument);
clock::Participant* on_stack(const void* address);
void kill_all();
bool inside();         // running as a task that is no thread of this process
bool making_thread();  // the pthread_create() going on is this module's own
void report_use();

// The top of the board's stack when address lies in a task's small stack, else null.
char* board_stack_for(const void* address);

// Not inlined: its frame is not for the small stack.
template <class Body>
__attribute__((noinline)) void run_body(void* body) {
    (*static_cast<Body*>(body))();
}

template <class Body>
void on_board_stack(Body& body) {
    char* stack = board_stack_for(__builtin_frame_address(0));
    if (stack == nullptr) {
        run_body<Body>(&body);
    } else {
        call_on(stack, run_body<Body>, &body);
    }
}

}  // namespace sim::clone_task
