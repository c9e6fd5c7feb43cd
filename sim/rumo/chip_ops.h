// What the chip functions of librumo.so.1 do with a chip, once the call has been
// counted and the chip found. Each returns 0 or a RUMO_SIM_ERR_* code and writes
// its outputs only on success.
#pragma once

#include "host_model.h"
#include "rumo_sim_codes.h"

#include <cstdint>
#include <map>
#include <string_view>

namespace tavo::sim {

template <class T>
int put(T *out, const T &value) {
    if (out == nullptr) {
        return RUMO_SIM_ERR_INVALID_ARGUMENT;
    }
    *out = value;
    return RUMO_SIM_OK;
}

// The value of `key` in a map of the chip (kind, sensor, ...).
template <class Map, class Key, class T>
int put_entry(const Map &map, const Key &key, T *out) {
    if (out == nullptr) {
        return RUMO_SIM_ERR_INVALID_ARGUMENT;
    }
    auto it = map.find(key);
    if (it == map.end()) {
        return RUMO_SIM_ERR_NOT_FOUND;
    }
    *out = it->second;
    return RUMO_SIM_OK;
}

int read_system_time(const Chip &chip, std::uint32_t *seconds);
int read_flash(const Chip &chip, std::uint32_t index, rumo_flash_info *info);
int read_error_codes(const Chip &chip, std::int32_t *count, std::uint32_t *codes);

// Truncates to size - 1 bytes and terminates; size 0 holds nothing.
int read_error_string(const Chip &chip, std::uint32_t code, unsigned char *text, std::int32_t size);

// The text and its terminator must fit `size`; `length` excludes the terminator.
int copy_version_text(std::string_view text, char *out, std::uint32_t size, std::uint32_t *length);
int read_component_version(const Chip &chip, std::uint8_t component, unsigned char *text,
                           std::uint32_t size, std::uint32_t *length);

int set_user_config(Chip &chip, const char *name, std::uint32_t size, const unsigned char *content);
// Copies the value and zero-fills the rest of the buffer.
int get_user_config(const Chip &chip, const char *name, std::uint32_t size, unsigned char *buffer);
int clear_user_config(Chip &chip, const char *name);
int set_ssh_enable(Chip &chip, std::uint32_t enable);
int get_ssh_enable(const Chip &chip, std::uint32_t *enable);

// Reports the link state; the counter grows by one after each report while alive.
int read_heartbeat(Chip &chip, std::uint8_t *status, std::uint32_t *counter);

}  // namespace tavo::sim
