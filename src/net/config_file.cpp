#include "net/config_file.h"

#include <fcntl.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "base/diag.h"
#include "base/fd.h"
#include "base/text.h"
#include "libmarl/network.h"
#include "net/text_file.h"

namespace marl {
namespace {

constexpr const char* kMainPath = "/mnt/mtd/Config/network";
constexpr const char* kBackupPath = "/mnt/backup/Config/network";
constexpr int kLeastPathLength = 25;
constexpr size_t kPieceSize = 32;

// What the name of an interface's file ends in; null where there is no file.
const char* path_ending(int index) {
    switch (index) {
        case 0:
            return "";
        case 2:
            return "2";
        case 3:
            return "ppp0";
        default:
            return nullptr;
    }
}

bool config_path(const char* base, int index, char* out, size_t size) {
    const char* ending = path_ending(index);
    if (ending == nullptr || strlen(base) + strlen(ending) >= size) return false;
    snprintf(out, size, "%s%s", base, ending);
    return true;
}

// The second word of "word = word"; empty when the line is nothing of the kind.
std::string_view value_of(std::string_view line) {
    const std::string_view name = first_word(line);
    if (name.empty()) return {};
    line.remove_prefix(static_cast<size_t>(name.data() - line.data()) + name.size());
    const size_t equals = line.find_first_not_of(" \t\n\v\f\r");
    if (equals == std::string_view::npos || line[equals] != '=') return {};
    return first_word(rest_of(line, equals + 1));
}

// The new text of a file, no longer than what a file may have.
class Text {
  public:
    bool append(std::string_view piece) {
        if (piece.size() > sizeof text_ - 1 - length_) return false;
        memcpy(text_ + length_, piece.data(), piece.size());
        length_ += piece.size();
        return true;
    }
    bool append_setting(const char* key, const char* value) {
        return append(key) && append(" = ") && append(value) && append("\n");
    }
    bool ends_in_a_line() const { return length_ == 0 || text_[length_ - 1] == '\n'; }
    std::string_view view() const { return {text_, length_}; }

  private:
    char text_[kTextFileSize];
    size_t length_ = 0;
};

// A key is looked for anywhere in a line, so one that is empty, or a part of what every line has, would be
// found in all.
bool is_key(std::string_view key) { return is_word(key) && key.find('=') == std::string_view::npos; }

// Takes over a file with one setting replaced or appended. False when that is too long.
bool rewrite(LineReader& reader, const char* key, const char* value, Text& text) {
    char piece[kPieceSize];
    bool replaced = false;
    while (reader.next(piece, sizeof piece)) {
        const bool holds_key = strstr(piece, key) != nullptr;
        if (!(holds_key ? text.append_setting(key, value) : text.append(piece))) return false;
        replaced = replaced || holds_key;
    }
    if (replaced) return true;
    return (text.ends_in_a_line() || text.append("\n")) && text.append_setting(key, value);
}

}  // namespace

bool main_config_path(int index, char* out, size_t size) { return config_path(kMainPath, index, out, size); }

bool backup_config_path(int index, char* out, size_t size) {
    return config_path(kBackupPath, index, out, size);
}

Reading reading_without_file(int error) {
    return error == ENOENT || error == ENOTDIR ? Reading::Absent : Reading::Failed;
}

Reading read_setting(const char* path, const char* key, char* out, size_t size) {
    const Fd file(open_file(path, O_RDONLY));
    if (!file.is_open()) return reading_without_file(errno);
    return read_setting(file.get(), key, out, size);
}

Reading read_setting(int fd, const char* key, char* out, size_t size) {
    LineReader reader(fd);
    char line[kConfigLineSize];
    while (reader.next(line, sizeof line)) {
        const std::string_view value = strstr(line, key) != nullptr ? value_of(line) : std::string_view();
        if (value.empty()) continue;
        copy_text(out, size, value);
        return Reading::Found;
    }
    return reader.failed() ? Reading::Failed : Reading::Absent;
}

}  // namespace marl

using namespace marl;

int NetConfigFileName(int index, char* buf, int len) {
    if (buf == nullptr) return -1;
    if (len < kLeastPathLength) {
        diag::err("FileName[%d] is too short,least is %d", len, kLeastPathLength);
        return -1;
    }
    if (path_ending(index) == nullptr) {
        diag::err("EthIndex=%d!\n", index);
        return -1;
    }
    return main_config_path(index, buf, static_cast<size_t>(len)) ? 0 : -1;
}

int NetConfigWriteKey(const char* path, const char* key, const char* value) {
    if (path == nullptr || key == nullptr || value == nullptr || !is_key(key) || !is_word(value)) return -1;
    TextFile file(path);
    Text text;
    if (!file.is_open() || file.is_new()) {
        const bool made = file.is_open() && text.append_setting(key, value) && text.append(" = = \n");
        if (made && file.save(text.view())) return 0;
        diag::err("open failed for %s", key);
        return -1;
    }
    LineReader reader(file.get());
    const bool fits = rewrite(reader, key, value, text);
    if (reader.failed()) {
        diag::err("open failed for %s", key);
        return -1;
    }
    return fits && file.save(text.view()) ? 0 : -1;
}
