/*
 * The supply of the 3G modem. Which line switches it, and which level means on, depends on the model and on
 * some models on the hardware version.
 *
 * No call takes a lock. The result is that of the line write (2 on success), 0 on models whose write is not
 * reported, or -1: request out of range, model without a switch ("power_3g: unkown product model=%s\n" on
 * standard error), or a failed write.
 */
#ifndef LIBMARL_POWER_3G_H
#define LIBMARL_POWER_3G_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

#define MARL_3G_ON 1
#define MARL_3G_OFF 2

/* Switches the modem on or off; `request` is MARL_3G_ON or MARL_3G_OFF, anything else is refused with -1. */
MARL_API int power_3g(int request);
MARL_API int power_3g_on(void);
MARL_API int power_3g_off(void);

/* The board's hardware version; 0 after "get hwinfo failed, set 0\n" on standard error when it is not known.
 */
MARL_API int power_3g_hw_version(void);

/*
 * The same with the index of the modem's interface, which is printed and selects nothing. A negative index is
 * refused with -1 before anything is printed; the _unchecked forms take any.
 */
MARL_API int power_3g_on_ifindex(int index);
MARL_API int power_3g_off_ifindex(int index);
MARL_API int power_3g_on_ifindex_unchecked(int index);
MARL_API int power_3g_off_ifindex_unchecked(int index);

MARL_END_DECLS

#endif
