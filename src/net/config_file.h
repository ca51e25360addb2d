// The text files of the network settings: lines of "key = value".
#pragma once

#include <cstddef>

namespace marl {

// The paths of an interface index: 0, 2 and 3 have files. False for any other index, or a path that
// does not fit.
bool main_config_path(int index, char* out, size_t size);
bool backup_config_path(int index, char* out, size_t size);

// Lines are read in pieces of up to 79 characters.
inline constexpr size_t kConfigLineSize = 80;

// What became of looking for a value. A file that cannot be read may well hold it: nothing else may stand in
// for it then.
enum class Reading { Found, Absent, Failed };

// What a file that could not be opened for this error number has to say: it is missing, or cannot be read.
Reading reading_without_file(int error);

// The value of the first line that holds `key` anywhere and is a setting at all. The second form reads an
// open file from where it stands.
Reading read_setting(const char* path, const char* key, char* out, size_t size);
Reading read_setting(int fd, const char* key, char* out, size_t size);

}  // namespace marl
