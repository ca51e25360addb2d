#include "modem/sysfs_walk.h"

#include <dirent.h>
#include <limits.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "base/diag.h"
#include "base/module.h"
#include "base/text.h"
#include "modem/usb_list.h"

namespace {

using namespace marl;

// How a search goes, and how it reports a callback that fails on each kind of file.
struct Manner {
    const char* function;
    int levels;
    bool takes_links;
    const char* directory_failed;
    const char* link_failed;
    const char* file_failed;
};

constexpr Manner kAnyFile = {"dvr_find_file",
                             10,
                             true,
                             "resolve_subusb_info failed",
                             "ident_name failed",
                             "find_pt->deal_result failed"};
constexpr const char* kSerialFailed = "resolve_ttyusbinfo failed";
constexpr Manner kSerialFile = {"find_File", 7, false, kSerialFailed, kSerialFailed, kSerialFailed};

// A path that grows by a name for each level. One buffer serves the whole search.
class Path {
  public:
    // False when the text does not fit; the path is as before then.
    bool append(std::string_view text) {
        if (text.size() >= sizeof text_ - length_) return false;
        copy_text(text_ + length_, sizeof text_ - length_, text);
        length_ += text.size();
        return true;
    }

    bool enter(std::string_view name) {
        const size_t before = length_;
        const bool separated = length_ > 0 && text_[length_ - 1] == '/';
        if ((separated || append("/")) && append(name)) return true;
        cut(before);
        return false;
    }

    void cut(size_t length) {
        length_ = length;
        text_[length] = '\0';
    }

    size_t length() const { return length_; }
    const char* text() const { return text_; }

  private:
    char text_[PATH_MAX] = {};
    size_t length_ = 0;
};

class Search {
  public:
    Search(const DvrFindRequest& request, const Manner& manner) : request_(request), manner_(manner) {}

    int run() {
        if (!path_.append(request_.directory)) return -1;
        visit(0);
        return failed_ ? -1 : 0;
    }

  private:
    void visit(int level) {
        struct stat info {};
        if (lstat(path_.text(), &info) != 0) {
            note_failure("lstat");
        } else if (S_ISLNK(info.st_mode)) {
            if (manner_.takes_links && matches()) hand_over(manner_.link_failed);
        } else if (!S_ISDIR(info.st_mode)) {
            if (matches()) hand_over(manner_.file_failed);
        } else if (matches()) {
            hand_over(manner_.directory_failed);
        } else if (level + 1 < manner_.levels) {
            visit_entries(level + 1);
        }
    }

    void visit_entries(int level) {
        DIR* directory = opendir(path_.text());
        if (directory == nullptr) {
            note_failure("opendir");
            return;
        }
        const size_t length = path_.length();
        while (const dirent64* entry = next_entry(directory)) {
            const std::string_view name = entry->d_name;
            if (name == "." || name == ".." || !path_.enter(name)) continue;
            visit(level);
            path_.cut(length);
        }
        if (errno != 0) note_failure("opendir");
        closedir(directory);
    }

    // Null with errno 0 at the end of a directory.
    static const dirent64* next_entry(DIR* directory) {
        errno = 0;
        return readdir64(directory);
    }

    bool matches() const { return strstr(path_.text(), request_.name) != nullptr; }

    void hand_over(const char* failure, int line = __builtin_LINE()) {
        if (request_.deal_result(path_.text(), request_.result, request_.size) < 0) {
            diag::error({module::kModem, manner_.function, line}, "%s", failure);
        }
    }

    // Devices come and go while they are looked for.
    void note_failure(const char* call) {
        if (errno == ENOENT) return;
        diag::library_system_error(call, errno);
        failed_ = true;
    }

    const DvrFindRequest& request_;
    const Manner& manner_;
    Path path_;
    bool failed_ = false;
};

}  // namespace

int marl::find_serial_files(const DvrFindRequest& request) { return Search(request, kSerialFile).run(); }

int dvr_find_file(const DvrFindRequest* request) {
    if (request == nullptr || request->name == nullptr || request->directory == nullptr ||
        request->result == nullptr || request->deal_result == nullptr) {
        diag::error({module::kModem, "dvr_find_file"}, "parameter error");
        return -1;
    }
    return Search(*request, kAnyFile).run();
}
