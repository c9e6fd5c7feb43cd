/*
 * rumo_sim_codes.h - return codes of the simulator build of librumo.so.1.
 *
 * The driver's own library has codes of its own; callers must only rely on
 * "0 is success". Tests that run against the simulator may compare with these.
 */
#ifndef RUMO_SIM_CODES_H
#define RUMO_SIM_CODES_H

enum rumo_sim_code {
    RUMO_SIM_OK = 0,
    /* A null pointer, a negative size or count, an out-of-range argument. */
    RUMO_SIM_ERR_INVALID_ARGUMENT = 1,
    /* The logic id names no chip, or one hidden by rumo_sim_set_device_count. */
    RUMO_SIM_ERR_NO_DEVICE = 2,
    /* The chip does not describe what was asked for: frequency, utilisation or
     * ECC kind, sensor id, flash index, component, error code text, user
     * configuration item. */
    RUMO_SIM_ERR_NOT_FOUND = 3,
    /* A size does not fit: the caller's buffer is too small for the value, or
     * the content is larger than the user configuration item holds. */
    RUMO_SIM_ERR_SIZE = 4,
    /* The host description failed to load: every call answers this. */
    RUMO_SIM_ERR_NO_HOST = 5,
    /* rumo_passthru_mcu: there is no MCU behind this chip. */
    RUMO_SIM_ERR_NO_MCU = 6,
    /* Out of memory or another internal failure of the simulator. */
    RUMO_SIM_ERR_INTERNAL = 7,
    /* rumo_passthru_mcu: the chip is wired to the MCU but the MCU's link is on the
     * card's other chip. */
    RUMO_SIM_ERR_LINK_DOWN = 8
};

#endif
