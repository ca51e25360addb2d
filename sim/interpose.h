// What the functions that stand in for the C library's have in common.
#pragma once

#include <functional>

#include "board.h"
#include "clone.h"
#include "journal.h"
#include "real.h"
#include "script.h"
#include "sim.h"

#define EXPORT extern "C" SIM_EXPORT

namespace sim {

using board::OpenFile;
using record::Line;

// On the board's stack, and without a trace in errno.
template <class Body>
int64_t aside(Body body) {
    const int saved = errno;
    int64_t result = 0;
    auto whole = [&] {
        board::boot();
        clock::enter();
        result = body();
    };
    clone_task::on_board_stack(whole);
    errno = saved;
    return result;
}

// The body answers as the kernel does.
template <class Result = int, class Body>
Result call(Body body) {
    const int64_t result = aside(body);
    if (result >= 0 || result < -4095) return static_cast<Result>(result);
    errno = static_cast<int>(-result);
    return -1;
}

// Beside opening and writing, what changes files.
inline bool is_change(const char* op) {
    return strcmp(op, "ftruncate") == 0 || strcmp(op, "unlink") == 0 || strcmp(op, "rename") == 0;
}

template <class Body>
int64_t unless_faulty(const char* what, const char* op, Body body) {
    const int64_t fault = script::fault_of(what, op);
    if (fault < 0) return fault;
    if (is_change(op)) script::count_change();
    return or_errno(body());
}

// The same, told in the journal in these words.
template <class Body>
int64_t told(const char* what, const char* op, const char* words, Body body) {
    const int64_t result = unless_faulty(what, op, body);
    Line(what).add(" %s", words).failure(result);
    return result;
}

// A call on a descriptor that is journaled as its name and one number.
template <class Result = int, class Kernel>
Result on_file(const char* op, int fd, int64_t number, Kernel kernel) {
    return call<Result>([&]() -> int64_t {
        const OpenFile* file = board::tracked(fd);
        if (file == nullptr) return or_errno(kernel());
        char words[48];
        const char* name = strcmp(op, "lseek") == 0 ? "seek" : op;
        snprintf(words, sizeof words, "%s %lld", name, static_cast<long long>(number));
        return told(file->name, op, words, kernel);
    });
}

// Reads or writes a descriptor, a device's or not; the kernel does it for real.
using Kernel = std::function<ssize_t(size_t most)>;
int64_t pass_data(const char* op, int fd, void* data, size_t size, const Kernel& kernel);

template <class Body>
ssize_t transfer(const char* op, int fd, const void* data, size_t size, Body kernel) {
    return call<ssize_t>([&] { return pass_data(op, fd, const_cast<void*>(data), size, std::ref(kernel)); });
}

// What would change the machine is recorded, never done.
inline int recorded(const char* what, int error = 0) {
    return call([&] {
        Line(what).failure(-error);
        return -error;
    });
}

// Stand-ins that need no more than that: for calls that carry data, and for others on a descriptor.
#define TRANSFER(name, op, parameters, arguments)                                              \
    EXPORT ssize_t name parameters {                                                           \
        return transfer(op, fd, data, size, [&](size_t most) { return real.name arguments; }); \
    }
#define DESCRIPTOR_CALL(type, name, number, parameters, arguments)                    \
    EXPORT type name parameters noexcept {                                            \
        return on_file<type>(#name, fd, number, [&] { return real.name arguments; }); \
    }

}  // namespace sim
