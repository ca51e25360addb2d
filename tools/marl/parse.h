// The command line, taken apart and checked by the table of commands.
#pragma once

#include "command.h"

namespace tool {

// Fills `request`. True when there is a command to be run; otherwise all that there was to say has been said, and
// the process ends with `status`.
bool parse(int argc, char** argv, Request& request, Exit& status);

}  // namespace tool
