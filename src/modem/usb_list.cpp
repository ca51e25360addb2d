#include "modem/usb_list.h"

#include <charconv>
#include <cstring>

namespace marl {

bool UsbLines::next() {
    if (!reader_.next(line_, sizeof line_)) return false;
    char* end = strchr(line_, '\n');
    if (end != nullptr) {
        *end = '\0';
        return true;
    }
    char tail[kLineSize];
    while (reader_.next(tail, sizeof tail) && strchr(tail, '\n') == nullptr) {
    }
    return true;
}

std::optional<std::string_view> text_after(std::string_view line, std::string_view key) {
    const size_t found = line.find(key);
    if (found == std::string_view::npos) return std::nullopt;
    line.remove_prefix(found + key.size());
    return rest_of(line, line.find_first_not_of(' '));
}

std::optional<int> leading_number(std::string_view text) {
    int number = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
    if (result.ec != std::errc()) return std::nullopt;
    return number;
}

std::optional<int> number_after(std::string_view line, std::string_view key) {
    const auto text = text_after(line, key);
    return text ? leading_number(*text) : std::nullopt;
}

}  // namespace marl
