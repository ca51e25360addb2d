/*
 * Halting the board, and its signal output.
 *
 * All of it runs on the caller's thread. sys_halt() and sleep_us() are safe from any thread, the signal
 * output belongs to one: calls that run beside each other leave it as the last of them says. No call has to
 * come first. After sys_reboot() (libmarl/reboot.h) sys_halt() waits for the reset on the recorder models.
 */
#ifndef LIBMARL_HALT_H
#define LIBMARL_HALT_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

/*
 * Prepares a halt: prints "sys will halt\n" on standard error and flushes the file systems. On the recorder
 * models (QZ-NRX1, QZ-NRX2) it then writes 0, the orderly end, to CMOS byte 1, between two lines on standard
 * output, and has the microcontroller cut the power: the result is that of mcu_shutdown(), 7 when the command
 * went out, negative after "shut_down_NRX2 fail \n" on standard output when it did not. 0 on all other
 * models, which go on running.
 */
MARL_API int sys_halt(void);

/*
 * Switches the signal output on or off: expander output 0 on the encoders KXEnAF and KXEnAH, GPIO line 49
 * (active low) on KXEnAM, GPIO line 45 on the recorder models. The result of the line's write on recorders, 2
 * on success and negative on failure; 0 on all other models, with or without an output.
 */
MARL_API int signal_output_on(void);
MARL_API int signal_output_off(void);

/*
 * Switches the signal output on and off with `rate` cycles per second (from 1; above 500 counts as 500), at
 * least once, until `duration_ms` milliseconds are over, and leaves it off. Returns when that is done: 0, or
 * -1 at once for a rate of 0.
 */
MARL_API int signal_output_toggle(uint32_t rate, uint32_t duration_ms);

/* Sleeps `us` microseconds, any number. The result of select(2): 0, or -1 when a signal cut it short. */
MARL_API int sleep_us(uint32_t us);

MARL_END_DECLS

#endif
