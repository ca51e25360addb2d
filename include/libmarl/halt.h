/* Halting the board, and its signal output. All of it runs on the caller's thread, any thread. */
#ifndef LIBMARL_HALT_H
#define LIBMARL_HALT_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

/*
 * Prepares a halt: prints "sys will halt\n" on standard error and flushes the file systems. On the recorder
 * models it then writes 0 to CMOS byte 1, between two lines on standard output, and has the microcontroller
 * cut the power: the result is that of mcu_shutdown(), 7 when the command went out, negative after
 * "shut_down_NRX2 fail " when it did not. 0 on all other models.
 */
MARL_API int sys_halt(void);

/*
 * Switches the signal output on or off: expander output 0 or GPIO line 49 (active low) on encoders, GPIO line
 * 45 on recorders. The result of the line's write on recorders, 2 on success and negative on failure; 0 on
 * all other models, with or without an output.
 */
MARL_API int signal_output_on(void);
MARL_API int signal_output_off(void);

/*
 * Toggles the signal output with `rate` cycles per second (from 1; above 500 counts as 500) for a little more
 * than `duration_ms` milliseconds, at least once, and leaves it off. Returns when that is done: 0, or -1 at
 * once for a rate of 0.
 */
MARL_API int signal_output_toggle(uint32_t rate, uint32_t duration_ms);

/* Sleeps `us` microseconds, any number. The result of select(2): 0, or -1 when a signal cut it short. */
MARL_API int sleep_us(uint32_t us);

MARL_END_DECLS

#endif
