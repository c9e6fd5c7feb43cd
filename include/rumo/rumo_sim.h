/*
 * rumo_sim.h - control interface of the device-management simulator.
 *
 * Only the simulator build of librumo.so.1 provides these functions. Tests and
 * tools use them to load a host description and to change the simulated world
 * while it runs. All return 0 on success and -1 on failure (with a one-line
 * reason on standard error) unless said otherwise.
 */
#ifndef RUMO_RUMO_SIM_H
#define RUMO_RUMO_SIM_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Environment variable naming the host description file to load at first use. */
#define RUMO_SIM_HOST_ENV "TAVO_SIM_HOST"

/* Replaces the simulated host with the one described in the JSON file `path`. */
int rumo_sim_load_host(const char *path);
/* Replaces the simulated host with the one described by the JSON text `json`. */
int rumo_sim_load_host_text(const char *json);
/* Replaces the simulated host with the built-in default host. */
int rumo_sim_load_default(void);

/* Sets one value of one chip. `key` is a field name of the chip description
 * (for example "temperature", "health", "error_codes") and `json_value` its new
 * value in JSON. */
int rumo_sim_set_value(uint32_t logic_id, const char *key, const char *json_value);

/* Makes the next `times` calls of the rumo_ function `function` (for example
 * "rumo_get_board_info") fail with `code`, whatever chip they address. */
int rumo_sim_fail_next(const char *function, int32_t times, int32_t code);

/* Limits the chips the host reports to the first `count` of its description
 * (as if the others had disappeared); -1 restores all of them. */
int rumo_sim_set_device_count(int32_t count);

/* Number of calls of `function` since the host was loaded or counts were reset. */
uint32_t rumo_sim_call_count(const char *function);
void rumo_sim_reset_counts(void);

/* ---- The card MCU ----
 * A card whose description has an "mcu" object carries an MCU model, reached by
 * rumo_passthru_mcu through the card's chip that holds the MCU's active link.
 * `slot_id` names the card: the first card of the description with that slot id.
 * The functions fail (-1) for a card without an MCU. */

/* Most data bytes of a recorded request. */
#define RUMO_SIM_MCU_DATA_MAX 1012
/* How a request reached the MCU. */
#define RUMO_SIM_MCU_PASSTHRU 0
#define RUMO_SIM_MCU_SMBUS 1

/* One request as it reached the MCU. */
typedef struct rumo_sim_mcu_frame {
    uint32_t slot_id;      /* the card */
    uint32_t transport;    /* RUMO_SIM_MCU_PASSTHRU or RUMO_SIM_MCU_SMBUS */
    uint32_t relay;        /* logic id of the chip that relayed it (pass-through) */
    uint32_t direction;    /* 0 read, 1 write */
    uint32_t request_size; /* header and data bytes */
    uint8_t control;
    uint8_t argument;
    uint16_t command;
    uint32_t offset;
    uint32_t length;
    uint32_t data_length; /* request_size - 12 */
    uint8_t data[RUMO_SIM_MCU_DATA_MAX];
} rumo_sim_mcu_frame;

/* What the MCU's firmware state is. */
typedef struct rumo_sim_mcu_state {
    uint32_t active_slot;     /* chip slot (1 or 3) carrying the MCU's link */
    uint8_t upgrade_state;    /* 0 idle, 1 receiving, 2 received, 3 upgrading, 4 done */
    uint8_t upgrade_progress; /* percent */
    uint8_t upgrade_control;  /* last upgrade control value received */
    uint8_t peripheral_test;  /* 1 while the link test runs */
    uint32_t image_length;    /* bytes of the image received */
} rumo_sim_mcu_state;

/* Number of requests the MCU received since the host was loaded or its frames were
 * cleared; -1 for a card without an MCU. */
int32_t rumo_sim_mcu_frame_count(uint32_t slot_id);
/* Request number `index` (0 = first). */
int rumo_sim_mcu_get_frame(uint32_t slot_id, uint32_t index, rumo_sim_mcu_frame *frame);
int rumo_sim_mcu_clear_frames(uint32_t slot_id);
/* Replaces the contents of item `command` (label items: `argument` is the label
 * item id; other items: 0). An empty item has total length 0. */
int rumo_sim_mcu_set_item(uint32_t slot_id, uint16_t command, uint8_t argument,
                          const uint8_t *bytes, uint32_t length);
/* The next `times` requests for `command` are answered with status `status`
 * (not 0); `times` 0 cancels. */
int rumo_sim_mcu_fail_command(uint32_t slot_id, uint16_t command, int32_t times, uint16_t status);
/* The next `times` read answers for `command` carry `length` data bytes (at most
 * 1012): the item's bytes at the offset, 0 past its end. */
int rumo_sim_mcu_set_piece_length(uint32_t slot_id, uint16_t command, int32_t times,
                                  uint32_t length);
/* Copies up to `size` bytes of the firmware image received; `length` receives the
 * image's full length. */
int rumo_sim_mcu_get_image(uint32_t slot_id, uint8_t *buffer, uint32_t size, uint32_t *length);
int rumo_sim_mcu_get_state(uint32_t slot_id, rumo_sim_mcu_state *state);

/* Called with every request that reaches an MCU through rumo_passthru_mcu, after
 * the MCU answered. It runs under the simulator's lock and must not call rumo_
 * functions. Loading a host removes it. */
typedef void (*rumo_sim_mcu_hook)(const rumo_sim_mcu_frame *frame, void *context);
/* A null hook removes it. Always 0. */
int rumo_sim_mcu_set_hook(rumo_sim_mcu_hook hook, void *context);

#ifdef __cplusplus
}
#endif

#endif
