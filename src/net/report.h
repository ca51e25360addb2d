#pragma once

namespace marl {

// The source that the network code's ERROR and WARN lines name.
inline constexpr const char* kNetSource = "src/net/net";

}  // namespace marl
