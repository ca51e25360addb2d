// The words of a script.
#pragma once

#include "source.h"

namespace sim::script {

// Makes orders of a line; false when it is wrong.
bool translate(Source& source);

// A number of 32 bits as it lies in a file.
std::string bytes_of(uint32_t number);

void make_mtd(Source& source);
void make_usb(Source& source);
void make_no_usb(Source& source);
void make_fault(Source& source);

}  // namespace sim::script
