#include "clone.h"

#include <sys/prctl.h>
#include <sys/wait.h>

#include <csignal>
#include <cstring>

#include "board.h"
#include "journal.h"
#include "real.h"
#include "sim.h"

// What sanitizers must know: what came before clone() came before the task; a killed task's frames are gone.
extern "C" {
__attribute__((weak)) void __asan_unpoison_memory_region(const volatile void* address, size_t size);
__attribute__((weak)) void __tsan_acquire(void* address);
__attribute__((weak)) void __tsan_release(void* address);
}

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

bool within(const char* address, const char* bottom, const char* top) { return address >= bottom && address < top; }

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

// In thread mode the thread waits from the start: a sanitizer's clone() holds what its pthread_create() wants.
void* spare_main(void*) {
    Task* task = nullptr;
    const timespec moment{0, 1'000'000};
    while ((task = handed.exchange(nullptr)) == nullptr) real.clock_nanosleep(CLOCK_MONOTONIC, 0, &moment, nullptr);
    if (__tsan_acquire != nullptr) __tsan_acquire(task);
    clock::adopt(task->participant);
    // The thread sanitizer's own frames do not fit on the small stack.
    if (clock::under_thread_sanitizer()) {
        task->top = task->bottom;
        task_main(task);
    } else {
        call_on(task->top, [](void* inner) { task_main(inner); }, task);
    }
    return nullptr;
}

int64_t begin_task(Task& task, void* stack, int flags) {
    prepare();
    task.participant = clock::add();
    if (task.participant == nullptr) return -EAGAIN;
    if (as_threads) {
        spare = false;
        if (__tsan_release != nullptr) __tsan_release(&task);
        handed = &task;
        return kThreadTaskId;
    }
    const int64_t id = or_errno(real.clone(task_main, stack, flags, &task));
    if (id < 0) clock::remove(task.participant);
    return id;
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

int64_t create(int (*function)(void*), void* stack, int flags, void* argument) {
    for (size_t i = 0; i < kTasks; ++i) {
        Task& task = tasks[(made + i) % kTasks];
        if (task.used) continue;
        task.top = reinterpret_cast<char*>(reinterpret_cast<uintptr_t>(stack) & ~uintptr_t{15});
        task.bottom = static_cast<char*>(stack) + sizeof(void*) - kBlock;
        task.function = function;
        task.argument = argument;
        task.pid = 0;
        task.used = true;
        const auto size = static_cast<size_t>(task.top - task.bottom);
        if (__asan_unpoison_memory_region != nullptr) __asan_unpoison_memory_region(task.bottom, size);
        memset(task.bottom, kPaint, size);
        last = &task;
        ++made;
        const int64_t id = begin_task(task, stack, flags);
        task.used = id >= 0;
        task.pid = static_cast<int>(id);
        return id;
    }
    return -EAGAIN;
}

clock::Participant* on_stack(const void* address) {
    if (made == 0) return nullptr;
    const auto* at = static_cast<const char*>(address);
    for (Task& task : tasks) {
        const bool mine = within(at, task.bottom, task.top) ||
                          within(at, task.board_stack, task.board_stack + kBoardStack);
        if (task.used && mine) return task.participant;
    }
    return nullptr;
}

char* board_stack_for(const void* address) {
    if (made == 0) return nullptr;
    for (Task& task : tasks) {
        if (within(static_cast<const char*>(address), task.bottom, task.top)) return task.board_stack + kBoardStack;
    }
    return nullptr;
}

bool making_thread() { return thread_in_making; }

bool inside() { return !as_threads && on_stack(__builtin_frame_address(0)) != nullptr; }

void kill_all() {
    for (Task& task : tasks) {
        if (!task.used || as_threads || task.pid <= 0) continue;
        kill(task.pid, SIGKILL);
        waitpid(task.pid, nullptr, __WALL);
        clock::remove(task.participant);
        task.used = false;
        task.bottom = task.top = nullptr;
    }
}

void forget_all() {
    for (Task& task : tasks) task.used = false;
    spare = false;
}

void report_use() {
    if (const unsigned used = clone_stack_used(); used > 0) {
        record::Line("clone").add(" stack used %u of %u", used, static_cast<unsigned>(kBlock));
    }
}

#if defined(__x86_64__)
void call_on(char* stack_top, void (*function)(void*), void* argument) {
    asm volatile(
        "mov %%rsp, %%rbx\n\tmov %1, %%rsp\n\tcall *%0\n\tmov %%rbx, %%rsp"
        : "+r"(function), "+r"(stack_top), "+D"(argument)
        :
        : "rbx", "rax", "rcx", "rdx", "rsi", "r8", "r9", "r10", "r11", "memory", "cc", "xmm0", "xmm1", "xmm2", "xmm3",
          "xmm4", "xmm5", "xmm6", "xmm7", "xmm8", "xmm9", "xmm10", "xmm11", "xmm12", "xmm13", "xmm14", "xmm15");
}
#elif defined(__arm__)
void call_on(char* stack_top, void (*function)(void*), void* argument) {
    register void* first asm("r0") = argument;
    asm volatile("mov r4, sp\n\tmov sp, %1\n\tblx %0\n\tmov sp, r4"
                 : "+r"(function), "+r"(stack_top), "+r"(first)
                 :
                 : "r1", "r2", "r3", "r4", "ip", "lr", "memory", "cc");
}
#else
#error "the simulated board changes stacks on x86-64 and 32-bit ARM only"
#endif

}  // namespace sim::clone_task

namespace sim {

// The program's frames leave the sanitizer's marks in this memory: they are no concern of a look at the paint.
__attribute__((no_sanitize("address", "thread"))) unsigned clone_stack_used() {
    using clone_task::last;
    if (last == nullptr || last->bottom == nullptr) return 0;
    const volatile char* at = last->bottom;
    while (at < last->top && static_cast<unsigned char>(*at) == clone_task::kPaint) ++at;
    return static_cast<unsigned>(last->top - at);
}

}  // namespace sim
