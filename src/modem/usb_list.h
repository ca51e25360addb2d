// The kernel's list of USB devices: a block of lines for each device, the first character of a line its kind.
// "T:" begins a block and tells the place in the tree; identity ("D:", "P:", "S:") and interfaces ("I:")
// follow. Root hubs are listed as well.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "base/text.h"

namespace marl {

inline constexpr const char* kUsbDeviceList = "/proc/bus/usb/devices";

// The lines of the list without their ends. What a line has beyond 127 characters is left out, so that it is
// never taken for a line of its own. Does not own the descriptor.
class UsbLines {
  public:
    explicit UsbLines(int fd) : reader_(fd) {}

    // False at the end of the list, or when it cannot be read to its end.
    bool next();
    bool failed() const { return reader_.failed(); }  // with the error in errno
    std::string_view text() const { return line_; }

  private:
    static constexpr size_t kLineSize = 128;

    LineReader reader_;
    char line_[kLineSize] = {};
};

// What follows `key` in a line, blanks before it left out; nothing when the key is not there.
std::optional<std::string_view> text_after(std::string_view line, std::string_view key);

// The number at the start of a text; nothing when there is none, or none that fits.
std::optional<int> leading_number(std::string_view text);
std::optional<int> number_after(std::string_view line, std::string_view key);

}  // namespace marl
