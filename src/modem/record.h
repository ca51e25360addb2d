// The modem record as code fills it, and the flag by which the modem is looked for.
#pragma once

#include <span>
#include <string_view>

#include "libmarl/modem.h"

namespace marl {

// A text of the record, for tables of where texts come from.
using ModuleText = std::span<char> (*)(Usb3gModule&);

template <auto Member>
std::span<char> text_of(Usb3gModule& module) {
    return module.*Member;
}

// Whether check_usb_hub_model() has found a board with a hub.
bool modem_is_behind_hub();

}  // namespace marl
