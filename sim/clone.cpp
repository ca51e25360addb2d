#include "clone.h"

#include <sys/prctl.h>
#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <iterator>

#include "board.h"
#include "journal.h"
#include "real.h"

// What the thread sanitizer must know: what came before clone() came before the task.
extern "C" {
__attribute__((weak)) void __tsan_acquire(void* address);
__attribute__((weak)) void __tsan_release(void* address);
}

// void call_on(char* stack_top, void (*function)(void*), void* argument), for x86-64 and for 32-bit ARM in whose
// Thumb code it stands as ARM code.
asm(".text; .globl call_on; .hidden call_on; .type call_on, %function");
#if defined(__x86_64__)
asm("call_on: push %rbx; mov %rsp, %rbx; mov %rdi, %rsp; mov %rdx, %rdi; call *%rsi; mov %rbx, %rsp; pop "
    "%rbx; ret");
#else
asm(".arm; .balign 4; call_on: push {r4, lr}; mov r4, sp; mov sp, r0; mov r0, r2; blx r1; mov sp, r4; pop "
    "{r4, pc}");
#endif

namespace sim::clone_task {
namespace {

constexpr size_t kBlock = 8096;  // what the program allocates; its first word down is the start of the stack
constexpr size_t kBoardStack = 128U << 10;
constexpr unsigned char kPaint = 0xA5;
constexpr int kThreadTaskId = 4242;

struct Task {
    bool used;
    clock::Participant* participant;
    char* bottom;
    char* top;
    int pid;
    int (*function)(void*);
    void* argument;
    alignas(16) char board_stack[kBoardStack];
};

constexpr size_t kTasks = 8;

constinit Task tasks[kTasks]{};
size_t made = 0;  // tasks ever begun: the usual program has none, and pays nothing
Task* last = nullptr;
bool as_threads = false;
bool thread_in_making = false;
bool spare = false;  // a thread waits for a task
std::atomic<Task*> handed{nullptr};

// The task whose stack, or whose part of the board's, address lies in.
Task* task_at(const void* address, bool on_its_own) {
    const auto within = [at = static_cast<const char*>(address)](const char* bottom, const char* top) {
        return at >= bottom && at < top;
    };
    for (size_t i = 0; i < std::min(made, kTasks); ++i) {
        Task& task = tasks[i];
        if (on_its_own ? within(task.bottom, task.top) : within(task.board_stack, std::end(task.board_stack)))
            return &task;
    }
    return nullptr;
}

// Runs at the very top of the small stack: no frame larger than it must be.
int task_main(void* context) {
    Task& task = *static_cast<Task*>(context);
    auto begin = [&task] {
        if (!as_threads) prctl(PR_SET_PDEATHSIG, SIGKILL);
        clock::begin(task.participant);
    };
    on_board_stack(begin);
    const int result = task.function(task.argument);
    auto end = [&task] {
        clock::Participant* participant = task.participant;
        task.used = false;
        clock::leave(participant);
    };
    on_board_stack(end);
    return result;
}

// In thread mode the thread waits from the start: a sanitizer's clone() holds what its pthread_create()
// wants.
void* spare_main(void*) {
    Task* task = nullptr;
    const timespec moment{0, 1'000'000};
    while ((task = handed.exchange(nullptr)) == nullptr)
        real.clock_nanosleep(CLOCK_MONOTONIC, 0, &moment, nullptr);
    if (__tsan_acquire != nullptr) __tsan_acquire(task);
    clock::adopt(task->participant);
    // The thread sanitizer's own frames do not fit on the small stack.
    if (clock::under_thread_sanitizer()) {
        task->top = task->bottom;
        return task_main(task), nullptr;
    }
    call_on(
        task->top, [](void* inner) { task_main(inner); }, task);
    return nullptr;
}

int64_t begin_task(Task& task, void* stack, int flags) {
    if (!as_threads) return real.clone(task_main, stack, flags, &task);
    prepare();
    spare = false;
    if (__tsan_release != nullptr) __tsan_release(&task);
    handed = &task;
    return kThreadTaskId;
}

}  // namespace

void use_threads(bool threads) { as_threads = threads; }

// Through the program's pthread_create(), so that a sanitizer knows of the thread.
void prepare() {
    if (!as_threads || spare) return;
    pthread_t thread{};
    thread_in_making = true;
    spare = pthread_create(&thread, nullptr, spare_main, nullptr) == 0;
    thread_in_making = false;
    if (spare) pthread_detach(thread);
}

// Slots are taken in turn: a task that has just ended is still on its way down the stacks of its own.
int64_t create(int (*function)(void*), void* stack, int flags, void* argument) {
    Task& task = tasks[made % kTasks];
    clock::Participant* participant = task.used ? nullptr : clock::add();
    if (participant == nullptr) return errno = EAGAIN, -1;
    task.used = true;
    task.participant = participant;
    task.top = static_cast<char*>(stack) - (reinterpret_cast<uintptr_t>(stack) & 15);
    task.bottom = static_cast<char*>(stack) + sizeof(void*) - kBlock;
    task.function = function;
    task.argument = argument;
    memset(task.bottom, kPaint, static_cast<size_t>(task.top - task.bottom));
    last = &task;
    ++made;
    const int64_t id = begin_task(task, stack, flags);
    task.pid = static_cast<int>(id);
    if (id < 0) {
        task.used = false;
        clock::remove(participant);
    }
    return id;
}

clock::Participant* on_stack(const void* address) {
    Task* task = task_at(address, true);
    if (task == nullptr) task = task_at(address, false);
    return task != nullptr && task->used ? task->participant : nullptr;
}

char* board_stack_for(const void* address) {
    Task* task = task_at(address, true);
    return task != nullptr ? std::end(task->board_stack) : nullptr;
}

bool making_thread() { return thread_in_making; }

bool inside() { return !as_threads && on_stack(__builtin_frame_address(0)) != nullptr; }

void kill_all() {
    for (Task& task : tasks) {
        if (!task.used || as_threads || task.pid <= 0) continue;
        real.kill(task.pid, SIGKILL);
        waitpid(task.pid, nullptr, __WALL);
        clock::remove(task.participant);
        task.used = false;
        task.bottom = task.top = nullptr;
    }
}

void report_use() {
    if (last == nullptr || last->bottom == nullptr) return;
    const volatile char* at = last->bottom;
    while (at < last->top && static_cast<unsigned char>(*at) == kPaint) ++at;
    if (at == last->top) return;
    record::Line("clone").add(" stack used %d of %d", static_cast<int>(last->top - at),
                              static_cast<int>(kBlock));
}

}  // namespace sim::clone_task
