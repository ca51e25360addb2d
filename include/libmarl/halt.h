/**
 * @defgroup halt Halt and signal output
 * @brief Halting the board, switching its signal output, and a sleep.
 *
 * Halt and signal output run on the caller's thread.
 *
 * @par Which call
 * No call has to come first. sys_halt() ends a run for good; to start anew use sync_and_reboot(). Only the
 * recorder models (`QZ-NRX1`, `QZ-NRX2`) can cut their own power: on any other one sys_halt() prepares
 * somebody pulling the plug. signal_output_toggle() is for a flash of some seconds, signal_output_on() and
 * signal_output_off() for what lasts.
 *
 * @par Messages
 * `sys will halt\n` on standard error, all others on standard output.
 *
 * @par Thread safety
 * sys_halt() and sleep_us() are safe from any thread, the signal output belongs to one: calls that run beside
 * each other leave it as the last of them says. After sys_reboot() sys_halt() waits for the reset on the
 * recorder models.
 *
 * @par Example
 * @code{.c}
 * signal_output_toggle(2, 3000);  // two flashes a second, for three seconds
 * @endcode
 * @{
 */
#ifndef LIBMARL_HALT_H
#define LIBMARL_HALT_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

/**
 * Prepares a halt: prints `sys will halt\n` on standard error and flushes the file systems. On the recorder
 * models (QZ-NRX1, QZ-NRX2) it then writes 0, the orderly end, to CMOS byte 1, between two lines on standard
 * output, and has the microcontroller cut the power.
 *
 * @return on the recorder models that of mcu_shutdown(): 7 when the command went out, negative after
 *         `shut_down_NRX2 fail \n` on standard output when it did not; 0 on all other models, which go on
 *         running
 */
MARL_API int sys_halt(void);

/**
 * Switches the signal output on: expander output 0 on the encoders KXEnAF and KXEnAH, GPIO line 49 (active
 * low) on KXEnAM, GPIO line 45 on the recorder models. n is the number of video channels.
 *
 * @return the result of the line's write on recorders, 2 on success and negative on failure; 0 on all other
 *         models, with or without an output
 */
MARL_API int signal_output_on(void);

/**
 * Switches the signal output off, as signal_output_on() does on.
 *
 * @return as there
 */
MARL_API int signal_output_off(void);

/**
 * Switches the signal output on and off, at least once, until the duration is over, and leaves it off.
 * Returns when that is done. Half a cycle is 500 / `rate` milliseconds, rounded down, 1 at least.
 *
 * @param rate         cycles per second, from 1; above 500 counts as 500
 * @param duration_ms  milliseconds
 * @return 0, or -1 at once for a rate of 0
 */
MARL_API int signal_output_toggle(uint32_t rate, uint32_t duration_ms);

/**
 * Sleeps.
 *
 * @param us  microseconds, any number
 * @return the result of select(2): 0, or -1 when a signal cut it short
 */
MARL_API int sleep_us(uint32_t us);

MARL_END_DECLS

/** @} */

#endif
