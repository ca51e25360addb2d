#include "net/text_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace marl {
namespace {

constexpr mode_t kMode = 0644;

// Opened as it is or made, but never cut: a file that is there although it could not be opened stays as it
// is.
int open_or_make(const char* path, bool& is_new) {
    int fd = open_file(path, O_RDWR);
    if (fd >= 0) return fd;
    const int why = errno;
    fd = open_file(path, O_RDWR | O_CREAT | O_EXCL, kMode);
    is_new = fd >= 0;
    if (fd < 0 && errno == EEXIST) errno = why;
    return fd;
}

bool go_to(int fd, size_t position) { return lseek(fd, static_cast<off_t>(position), SEEK_SET) >= 0; }

bool write_at(int fd, size_t position, const char* text, size_t size) {
    return go_to(fd, position) && write_whole(fd, text, size);
}

bool cut(int fd, size_t size) {
    return repeat_interrupted([&] { return ftruncate(fd, static_cast<off_t>(size)); }) == 0;
}

bool make_durable(int fd) {
    return repeat_interrupted([&] { return fsync(fd); }) == 0;
}

// The space for a longer text, in empty lines behind the old one.
bool reserve(int fd, size_t old_size, size_t size) {
    char lines[kTextFileSize];
    memset(lines, '\n', sizeof lines);
    if (size <= old_size || write_at(fd, old_size, lines, size - old_size)) return true;
    cut(fd, old_size);
    return false;
}

// The new text in one write, and in the same write empty lines over what is longer of the old one: the file
// system keeps so little text as one node, so it is there as a whole or not at all.
bool overwrite(int fd, size_t old_size, std::string_view text) {
    char fresh[kTextFileSize];
    const size_t size = std::max(text.size(), std::min(old_size, sizeof fresh));
    memset(fresh, '\n', size);
    std::copy(text.begin(), text.end(), fresh);
    if (!write_at(fd, 0, fresh, size)) return false;
    return std::max(size, old_size) == text.size() || cut(fd, text.size());
}

}  // namespace

TextFile::TextFile(const char* path) : path_(path), file_(open_or_make(path, is_new_)) {}

TextFile::~TextFile() {
    if (is_new_ && !is_saved_) unlink(path_);
}

bool TextFile::save(std::string_view text) {
    const int fd = file_.get();
    const off_t end = lseek(fd, 0, SEEK_END);
    if (end < 0 || text.size() >= kTextFileSize) return false;
    const auto old_size = static_cast<size_t>(end);
    char old_text[kTextFileSize];  // as much of it as can be overwritten
    const size_t kept = std::min(old_size, sizeof old_text);
    if (!go_to(fd, 0) || !read_whole(fd, old_text, kept) || !reserve(fd, old_size, text.size())) return false;
    is_saved_ = overwrite(fd, old_size, text) && make_durable(fd);
    if (is_saved_) return true;
    write_at(fd, 0, old_text, kept);
    cut(fd, old_size);
    make_durable(fd);
    return false;
}

bool is_word(std::string_view text) {
    constexpr unsigned char kDelete = 0x7F;
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char each) {
        const auto character = static_cast<unsigned char>(each);
        return character > ' ' && character != kDelete;
    });
}

}  // namespace marl
