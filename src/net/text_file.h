// Saving small text files. Whatever happens on the way - the power goes, the flash is full, a write fails -
// the file holds its old text or the new one, maybe with empty lines behind it, which no reader minds.
#pragma once

#include <cstddef>
#include <string_view>

#include "base/fd.h"

namespace marl {

inline constexpr size_t kTextFileSize = 4096;  // room for the longest text that is saved, and its NUL

// A file to be saved, made if there is none. One that was made and not saved goes again.
class TextFile {
  public:
    explicit TextFile(const char* path);
    ~TextFile();

    bool is_open() const { return file_.is_open(); }  // false with errno set
    bool is_new() const { return is_new_; }
    int get() const { return file_.get(); }

    // Makes `text` all that the file holds, and durable. False when that fails; the old text is back then.
    bool save(std::string_view text);

  private:
    const char* path_;
    bool is_new_ = false;
    bool is_saved_ = false;
    Fd file_;
};

// Whether a text is one word: as a value or a server it reads back as it was given, and it cannot end its
// line.
bool is_word(std::string_view text);

}  // namespace marl
