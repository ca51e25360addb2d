// The reset button: held for 25 polls of the loop, 5 s, it wipes the device's configuration and
// logs and reboots.
#pragma once

namespace sentrel {

// Chooses the button's GPIO line, once, before the first poll.
void choose_reset_gpio_line(int product_type);

// One poll. 0, also after a reset; -1 when the GPIO device cannot be opened, or the negative result of a
// failed read, both of which leave the hold countdown alone. While the button stays held after a reset, every
// poll resets again.
int check_reset_button(int product_type);

// Marks a factory reset in the CMOS bytes: the network copy invalid, the reset mark 'f', the run marker 0.
// Goes to the device directly, without the lock and the model exemption of the CMOS store.
void clear_cmos();

}  // namespace sentrel
