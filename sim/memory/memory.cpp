#include "memory/memory.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/netlink.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace memory {

Answers answers;

namespace {

constexpr int kFirst = 1000;  // of the descriptors
constexpr size_t kMost = 32;
constexpr int kGpio = kFirst - 1;  // the library's initialiser wants it before anything is set up here

struct File {
    std::string text;
    Kind kind;
    uint64_t number;

    ssize_t get(size_t from, void* data, size_t size) const {
        const size_t count = from < text.size() ? std::min(size, text.size() - from) : 0;
        if (count > 0) memcpy(data, text.data() + from, count);
        return static_cast<ssize_t>(count);
    }
    ssize_t set(size_t from, const void* data, size_t size) {
        if (text.size() < from + size) text.resize(from + size);
        if (size > 0) memcpy(text.data() + from, data, size);
        return static_cast<ssize_t>(size);
    }
    int describe(struct stat& info) const {
        info = {};
        info.st_ino = number;
        info.st_mode = kind == Kind::Directory ? S_IFDIR : kind == Kind::Link ? S_IFLNK : S_IFREG;
        return 0;
    }
};

struct Name {
    std::string path;
    std::shared_ptr<File> file;
};

struct Open {
    std::shared_ptr<File> file;
    size_t at = 0;
};

struct Listing {
    std::string start;  // of the paths
    std::vector<std::string> given = {};
    size_t next = 0;  // of the names
    dirent64 entry = {};
};

bool g_is_set_up = false;
std::vector<Name> g_names;
Open g_open[kMost];
uint64_t g_files = 0;

int fail(int error) {
    errno = error;
    return -1;
}

Name* find(std::string_view path) {
    const auto found =
        std::find_if(g_names.begin(), g_names.end(), [&](const Name& each) { return each.path == path; });
    return found != g_names.end() ? &*found : nullptr;
}

// A path that others begin with is a directory.
bool is_above(std::string_view path) {
    return std::any_of(g_names.begin(), g_names.end(), [&](const Name& each) {
        return each.path.size() > path.size() && each.path.starts_with(path) && each.path[path.size()] == '/';
    });
}

int open_file(std::shared_ptr<File> file) {
    Open* free = std::find_if(g_open, g_open + kMost, [](const Open& each) { return !each.file; });
    if (free == g_open + kMost) return fail(EMFILE);
    *free = {std::move(file), 0};
    return kFirst + static_cast<int>(free - g_open);
}

// A call on what is open; a device has a function for it where it answers.
template <typename Call>
auto on(int fd, Call call) -> decltype(call(g_open[0])) {
    const auto index = static_cast<size_t>(fd - kFirst);
    return index < kMost && g_open[index].file ? call(g_open[index]) : fail(EBADF);
}

ssize_t move_on(Open& open, ssize_t count) {
    open.at += static_cast<size_t>(count);
    return count;
}

}  // namespace

void clear() {
    g_is_set_up = true;
    g_names.clear();
    answers = {};
}

void put(const std::string& path, std::string_view text, Kind kind) {
    Name* name = find(path);
    if (name == nullptr) name = &g_names.emplace_back(Name{path, nullptr});
    name->file = std::make_shared<File>(File{std::string(text), kind, ++g_files});
}

void remove(const std::string& path) {
    std::erase_if(g_names, [&](const Name& each) { return each.path == path; });
}

std::string& text_of(const std::string& path) { return find(path)->file->text; }

std::vector<std::string> paths() {
    std::vector<std::string> list;
    for (const Name& each : g_names) list.push_back(each.path);
    return list;
}

int descriptors() {
    return static_cast<int>(
        std::count_if(g_open, g_open + kMost, [](const Open& each) { return each.file != nullptr; }));
}

}  // namespace memory

using namespace memory;

#define IN_PLACE(type, name, ...) extern "C" type __wrap_##name(__VA_ARGS__)
#define ALWAYS(name, result) \
    extern "C" int __wrap_##name() { return result; }
#define NEVER(name) \
    extern "C" int __wrap_##name() { abort(); }

IN_PLACE(int, open, const char* path, int flags, mode_t) {
    if (!g_is_set_up) return strcmp(path, "/dev/misc/gpio") == 0 ? kGpio : fail(ENOENT);
    if (answers.opens != nullptr) answers.opens(path);
    const Name* name = find(path);
    if (name == nullptr && is_above(path)) return fail(EISDIR);
    if (name == nullptr && (flags & O_CREAT) != 0) {
        put(path, "");
        name = find(path);
    }
    if (name == nullptr) return fail(ENOENT);
    if (name->file->kind == Kind::Directory) return fail(EISDIR);
    return name->file->kind == Kind::Link ? fail(ELOOP) : open_file(name->file);
}
IN_PLACE(int, close, int fd) {
    return on(fd, [](Open& open) { return open.file.reset(), 0; });
}
IN_PLACE(ssize_t, read, int fd, void* data, size_t size) {
    return on(fd, [&](Open& open) {
        if (open.file->kind == Kind::Device && answers.read != nullptr) return answers.read(data, size);
        return move_on(open, open.file->get(open.at, data, size));
    });
}
// Messages go nowhere.
IN_PLACE(ssize_t, write, int fd, const void* data, size_t size) {
    if (fd == STDOUT_FILENO || fd == STDERR_FILENO) return static_cast<ssize_t>(size);
    return on(fd, [&](Open& open) {
        if (open.file->kind == Kind::Device && answers.write != nullptr) return answers.write(data, size);
        return move_on(open, open.file->set(open.at, data, size));
    });
}
IN_PLACE(ssize_t, pread, int fd, void* data, size_t size, off_t from) {
    return on(fd, [&](Open& open) { return open.file->get(static_cast<size_t>(from), data, size); });
}
IN_PLACE(ssize_t, pwrite, int fd, const void* data, size_t size, off_t from) {
    return on(fd, [&](Open& open) { return open.file->set(static_cast<size_t>(from), data, size); });
}
IN_PLACE(off_t, lseek, int fd, off_t to, int from) {
    return on(fd, [&](Open& open) {
        open.at = static_cast<size_t>(to) + (from == SEEK_END ? open.file->text.size() : 0);
        return static_cast<off_t>(open.at);
    });
}
IN_PLACE(int, ftruncate, int fd, off_t size) {
    return on(fd, [&](Open& open) { return open.file->text.resize(static_cast<size_t>(size)), 0; });
}
IN_PLACE(int, ioctl, int fd, unsigned long request, void* argument) {
    return on(fd, [&](Open&) {
        return answers.control != nullptr ? answers.control(request, argument) : fail(ENOTTY);
    });
}
IN_PLACE(int, fstat64, int fd, struct stat* info) {
    return on(fd, [&](Open& open) { return open.file->describe(*info); });
}
IN_PLACE(int, lstat, const char* path, struct stat* info) {
    if (is_above(path)) return File{"", Kind::Directory, 0}.describe(*info);
    const Name* name = find(path);
    return name != nullptr ? name->file->describe(*info) : fail(ENOENT);
}
IN_PLACE(int, access, const char* path, int) { return find(path) != nullptr ? 0 : fail(ENOENT); }
IN_PLACE(int, unlink, const char* path) {
    memory::remove(path);
    return 0;
}

// Words are fetched with pread; nobody looks at their mapping. Memory of no file is the kernel's, and kept.
IN_PLACE(void*, mmap, void* at, size_t size, int protection, int flags, int fd, off_t offset) {
    static char page[sizeof(uint32_t)];
    return (flags & MAP_ANONYMOUS) != 0 ? mmap(at, size, protection, flags, fd, offset) : page;
}

// Streams that do not block are written as they are.
IN_PLACE(int, fcntl, int, int request, ...) { return request == F_GETFL ? O_RDWR | O_NONBLOCK : 0; }

IN_PLACE(DIR*, opendir, const char* path) {
    const bool is_ended = std::string_view(path).ends_with('/');
    return reinterpret_cast<DIR*>(new Listing{std::string(path) + (is_ended ? "" : "/")});
}
IN_PLACE(dirent64*, readdir64, DIR* directory) {
    auto& [start, given, next, entry] = *reinterpret_cast<Listing*>(directory);
    while (next < g_names.size()) {
        const std::string& path = g_names[next++].path;
        if (!path.starts_with(start) || path.size() == start.size()) continue;
        const std::string part = path.substr(start.size(), path.find('/', start.size()) - start.size());
        if (std::find(given.begin(), given.end(), part) != given.end()) continue;
        given.push_back(part);
        part.copy(entry.d_name, sizeof entry.d_name - 1);
        entry.d_name[std::min(part.size(), sizeof entry.d_name - 1)] = '\0';
        return &entry;
    }
    errno = 0;
    return nullptr;
}
IN_PLACE(int, closedir, DIR* directory) {
    delete reinterpret_cast<Listing*>(directory);
    return 0;
}

IN_PLACE(int, socket, int, int, int) { return open_file(std::make_shared<File>(File{"", Kind::Device, 0})); }
IN_PLACE(ssize_t, recvfrom, int, void* data, size_t size, int, sockaddr* from, socklen_t*) {
    if (answers.receive == nullptr) return fail(EAGAIN);
    return answers.receive(data, size, reinterpret_cast<sockaddr_nl*>(from)->nl_pid);
}

IN_PLACE(int, system, const char* command) {
    if (answers.command == nullptr) abort();
    answers.command(command);
    return 0;
}
IN_PLACE(void, reboot_when_idle) {
    if (answers.reboot != nullptr) answers.reboot();
    abort();
}

ALWAYS(bind, 0)
ALWAYS(fsync, 0)
ALWAYS(munmap, 0)
ALWAYS(poll, 0)
ALWAYS(pthread_sigmask, 0)
ALWAYS(select, 0)
ALWAYS(setsockopt, 0)

NEVER(clone)
NEVER(execve)
NEVER(pthread_create)
NEVER(sendto)
NEVER(sync)
NEVER(syscall)
NEVER(umount)
NEVER(umount2)
NEVER(vfork)
