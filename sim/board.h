// The board as a whole: its directory, its descriptors, its beginning and its end.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace sim::devices {
struct Model;
}

namespace sim::board {

constexpr size_t kPathSize = 512;

// How the process ends when the board does.
enum ExitCode { kEndOfTime = 0, kBadScript = 2, kReset = 3, kStuck = 5, kCut = 6 };

void boot();  // at the first call of anything; later calls cost a comparison

// The board goes down and the process with it. Never returns to the caller.
[[noreturn]] void end(const char* reason, ExitCode code);

// Kills clone tasks and removes the files, if they are this process' own.
void clean_up();

// Whether the program is one that the launcher started, and not a test program.
bool is_launched();

// Where a path of the program lies, or null when it is not the board's.
const char* place(const char* path, char (&out)[kPathSize]);
// The same for scripts and commands, for which nothing outside of the board exists.
bool place_inside(const char* path, char (&out)[kPathSize]);

// Outside of the board: a launched program may write where nothing stays.
bool may_write(const char* path);

struct OpenFile {
    bool used = false;
    const devices::Model* model = nullptr;
    char name[128] = {};
};

OpenFile* tracked(int descriptor);  // null: no business of the board
void track(int descriptor, const char* name);
void forget(int descriptor);

// Files of the board, by the path the program uses; none of these is journaled.
int open_file(const char* path, int flags);  // -1 when that cannot be done
bool write_file(const char* path, int flags, std::string_view data, off_t offset);
void make_parents(char* place);                          // the directories above a place
bool remove_tree(const char* path, bool contents_only);  // a path of the host

}  // namespace sim::board
