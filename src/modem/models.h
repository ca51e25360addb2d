// The models that matter to the modem beyond its supply: boards with a USB hub of their own, and boards whose
// known modems need a longer time without power.
#pragma once

#include <algorithm>

#include "identity/catalogue.h"

namespace marl::modem_models {

using catalogue::Group;

inline constexpr Group kHubBoards[] = {catalogue::kVmk51f, catalogue::kKa2, catalogue::kHubModels,
                                       catalogue::kKbA};

inline constexpr Group kSlowToReset[] = {catalogue::kFirstPair, catalogue::kRefused, catalogue::kKl7Group,
                                         catalogue::kKt1};

inline bool is_among(std::span<const Group> groups) {
    return std::any_of(groups.begin(), groups.end(), catalogue::is_model_of);
}

// On this board the modem is on either port of the hub.
inline bool has_modem_on_any_port() { return catalogue::is_model_of(catalogue::kKbA); }

}  // namespace marl::modem_models
