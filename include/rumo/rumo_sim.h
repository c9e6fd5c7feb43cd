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

#ifdef __cplusplus
}
#endif

#endif
