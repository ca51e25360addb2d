// The sources of identification: what they answer, and the look-up in the one that lies in flash.
#pragma once

#include <cerrno>
#include <cstdint>
#include <span>

namespace marl {

// A source that failed may have something to say at the next try; one that has nothing will not.
enum class Answer : uint8_t { Given, None, Failed };

// Whether an error of open(2) says that the board has no such file or device.
constexpr bool is_absent(int error) {
    return error == ENOENT || error == ENOTDIR || error == ENODEV || error == ENXIO;
}

// get_armboot_para that tells a variable that does not exist from an image that could not be loaded. `value`
// is not empty.
Answer look_up_environment(const char* key, std::span<char> value);

bool environment_is_loaded();

}  // namespace marl
