// What the files of the microcontroller link share.
#pragma once

#include <cstdint>

#include "base/diag.h"
#include "base/lock.h"
#include "base/module.h"

namespace marl::mcu {

// The step of everything that waits here: for bytes, for an answer, for the next try of a write.
inline constexpr uint32_t kPollMs = 10;

// Reports a call that cannot be right; the process goes on.
inline void report_assertion(int line = __builtin_LINE()) {
    diag::out("--Assert(File:%s::Line:%d)--\n", module::kMcu, line);
}

}  // namespace marl::mcu
