// The smallest board, for programs that run the library millions of times: its files are in memory, its devices answer
// by functions of the program, and no time passes on it. The linker puts it in the place of the C library's functions,
// for the library alone, so nothing that the library does there leaves the process; what no text from outside may ever
// bring it to do, such as starting a process, ends the program.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace memory {

enum class Kind { File, Device, Directory, Link };

void clear();  // no files, and no answers; descriptors that are open keep their file
void put(const std::string& path, std::string_view text, Kind kind = Kind::File);  // a new file of that name
void remove(const std::string& path);
std::string& text_of(const std::string& path);  // of a file that is there
std::vector<std::string> paths();
int descriptors();  // that are open

// What a program may answer; without an answer a call fails, a command or a reboot ends the program.
struct Answers {
    ssize_t (*read)(void* data, size_t size);  // of devices, as the next two
    ssize_t (*write)(const void* data, size_t size);
    int (*control)(unsigned long request, void* argument);
    ssize_t (*receive)(void* data, size_t size, uint32_t& sender);
    void (*command)(std::string_view text);
    void (*opens)(const std::string& path);  // is told before a file is looked for
    void (*reboot)();
};
extern Answers answers;

}  // namespace memory
