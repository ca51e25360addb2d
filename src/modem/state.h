#pragma once

namespace marl {

// What kind of modem was found on USB: written by the modem identification, read by the power switch, for the
// life of the process. -1 while none is known.
inline constexpr int kUnknownModem = -1;
inline constexpr int kThirdVendorModem = 3;
extern int g_modem_type;

// The product type as the system-information query last saw it; 0 until that has run. The power switch reads
// it to stay silent on two product types that have no modem.
extern int g_queried_product_type;

}  // namespace marl
