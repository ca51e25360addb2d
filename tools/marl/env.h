// What other families ask of the boot environment.
#pragma once

#include "command.h"

namespace tool {

// Sets a variable unless it has that value, sees that it is in flash, and shows what was done.
Exit set_variable(const char* name, const char* value);

}  // namespace tool
