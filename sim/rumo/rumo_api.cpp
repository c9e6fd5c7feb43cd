// The device-management functions of librumo.so.1, answered from the simulated host.
#include <rumo/rumo.h>

#include "chip_ops.h"
#include "sim_global.h"

#include <algorithm>
#include <exception>

using tavo::sim::Chip;
using tavo::sim::Fn;
using tavo::sim::put;
using tavo::sim::put_entry;
using tavo::sim::Simulator;

namespace {

// Counts the call and answers injected failures before `body` runs; no exception
// leaves a C function.
template <class Body>
int run(Fn fn, Body &&body) noexcept {
    try {
        return tavo::sim::with_simulator([&](Simulator &sim) -> int {
            int code = sim.enter(fn);
            return code != RUMO_SIM_OK ? code : body(sim);
        });
    } catch (...) {
        return RUMO_SIM_ERR_INTERNAL;
    }
}

// As run, for a function that addresses the chip `logic_id`.
template <class Body>
int run_on_chip(Fn fn, uint32_t logic_id, Body &&body) noexcept {
    return run(fn, [&](Simulator &sim) -> int {
        Simulator::ChipAccess access = sim.open_chip(fn, logic_id);
        return access.code != RUMO_SIM_OK ? access.code : body(*access.chip);
    });
}

}  // namespace

extern "C" {

RUMO_EXPORT int rumo_get_device_count(int32_t *count) {
    return run(Fn::get_device_count, [&](Simulator &sim) {
        return put(count, static_cast<int32_t>(sim.shown_chips().size()));
    });
}

RUMO_EXPORT int rumo_list_device(uint32_t *ids, int32_t count) {
    return run(Fn::list_device, [&](Simulator &sim) {
        if (ids == nullptr || count < 0) {
            return RUMO_SIM_ERR_INVALID_ARGUMENT;
        }
        auto chips = sim.shown_chips();
        std::size_t n = std::min(chips.size(), static_cast<std::size_t>(count));
        std::transform(chips.begin(), chips.begin() + static_cast<std::ptrdiff_t>(n), ids,
                       [](const Chip &c) { return c.logic_id; });
        return RUMO_SIM_OK;
    });
}

RUMO_EXPORT int rumo_get_board_info(uint32_t logic_id, rumo_board_info *info) {
    return run(Fn::get_board_info, [&](Simulator &sim) {
        Simulator::ChipAccess access = sim.open_chip(Fn::get_board_info, logic_id);
        if (access.code != RUMO_SIM_OK) {
            return access.code;
        }
        const tavo::sim::Card &card = sim.card_of(*access.chip);
        return put(info, rumo_board_info{card.board_id, card.pcb_id, card.bom_id, card.slot_id});
    });
}

RUMO_EXPORT int rumo_get_chip_info(uint32_t logic_id, rumo_chip_info *info) {
    return run_on_chip(Fn::get_chip_info, logic_id, [&](Chip &chip) {
        rumo_chip_info out{};
        chip.chip.type.copy(out.chip_type, sizeof out.chip_type - 1);
        chip.chip.name.copy(out.chip_name, sizeof out.chip_name - 1);
        chip.chip.version.copy(out.chip_ver, sizeof out.chip_ver - 1);
        return put(info, out);
    });
}

RUMO_EXPORT int rumo_get_pcie_info(uint32_t logic_id, rumo_pcie_info *info) {
    return run_on_chip(Fn::get_pcie_info, logic_id,
                       [&](Chip &chip) { return put(info, chip.pcie); });
}

RUMO_EXPORT int rumo_get_device_temperature(uint32_t logic_id, int32_t *temperature) {
    return run_on_chip(Fn::get_device_temperature, logic_id,
                       [&](Chip &chip) { return put(temperature, chip.temperature); });
}

RUMO_EXPORT int rumo_get_device_voltage(uint32_t logic_id, uint32_t *voltage) {
    return run_on_chip(Fn::get_device_voltage, logic_id,
                       [&](Chip &chip) { return put(voltage, chip.voltage); });
}

RUMO_EXPORT int rumo_get_device_power_info(uint32_t logic_id, uint32_t *power) {
    return run_on_chip(Fn::get_device_power_info, logic_id,
                       [&](Chip &chip) { return put(power, chip.power); });
}

RUMO_EXPORT int rumo_get_device_frequency(uint32_t logic_id, uint32_t kind, uint32_t *frequency) {
    return run_on_chip(Fn::get_device_frequency, logic_id,
                       [&](Chip &chip) { return put_entry(chip.frequency, kind, frequency); });
}

RUMO_EXPORT int rumo_get_device_utilization_rate(uint32_t logic_id, uint32_t kind, uint32_t *rate) {
    return run_on_chip(Fn::get_device_utilization_rate, logic_id,
                       [&](Chip &chip) { return put_entry(chip.utilization, kind, rate); });
}

RUMO_EXPORT int rumo_get_device_die(uint32_t logic_id, rumo_die_id *die) {
    return run_on_chip(Fn::get_device_die, logic_id,
                       [&](Chip &chip) { return put(die, chip.die); });
}

RUMO_EXPORT int rumo_get_device_ndie(uint32_t logic_id, rumo_die_id *die) {
    return run_on_chip(Fn::get_device_ndie, logic_id,
                       [&](Chip &chip) { return put(die, chip.ndie); });
}

RUMO_EXPORT int rumo_get_aicore_info(uint32_t logic_id, rumo_aicore_info *info) {
    return run_on_chip(Fn::get_aicore_info, logic_id,
                       [&](Chip &chip) { return put(info, chip.aicore); });
}

RUMO_EXPORT int rumo_get_soc_sensor_info(uint32_t logic_id, uint32_t sensor_id,
                                         rumo_sensor_info *info) {
    return run_on_chip(Fn::get_soc_sensor_info, logic_id,
                       [&](Chip &chip) { return put_entry(chip.soc_sensors, sensor_id, info); });
}

RUMO_EXPORT int rumo_get_system_time(uint32_t logic_id, uint32_t *seconds) {
    return run_on_chip(Fn::get_system_time, logic_id,
                       [&](Chip &chip) { return tavo::sim::read_system_time(chip, seconds); });
}

RUMO_EXPORT int rumo_get_memory_info(uint32_t logic_id, rumo_memory_info *info) {
    return run_on_chip(Fn::get_memory_info, logic_id,
                       [&](Chip &chip) { return put(info, chip.memory); });
}

RUMO_EXPORT int rumo_get_hbm_info(uint32_t logic_id, rumo_hbm_info *info) {
    return run_on_chip(Fn::get_hbm_info, logic_id, [&](Chip &chip) { return put(info, chip.hbm); });
}

RUMO_EXPORT int rumo_get_ecc_info(uint32_t logic_id, uint32_t kind, rumo_ecc_info *info) {
    return run_on_chip(Fn::get_ecc_info, logic_id,
                       [&](Chip &chip) { return put_entry(chip.ecc, kind, info); });
}

RUMO_EXPORT int rumo_get_device_flash_count(uint32_t logic_id, uint32_t *count) {
    return run_on_chip(Fn::get_device_flash_count, logic_id, [&](Chip &chip) {
        return put(count, static_cast<uint32_t>(chip.flash.size()));
    });
}

RUMO_EXPORT int rumo_get_device_flash_info(uint32_t logic_id, uint32_t index,
                                           rumo_flash_info *info) {
    return run_on_chip(Fn::get_device_flash_info, logic_id,
                       [&](Chip &chip) { return tavo::sim::read_flash(chip, index, info); });
}

RUMO_EXPORT int rumo_get_device_health(uint32_t logic_id, uint32_t *health) {
    return run_on_chip(Fn::get_device_health, logic_id,
                       [&](Chip &chip) { return put(health, chip.health); });
}

RUMO_EXPORT int rumo_get_device_errorcode(uint32_t logic_id, int32_t *count, uint32_t *codes) {
    return run_on_chip(Fn::get_device_errorcode, logic_id,
                       [&](Chip &chip) { return tavo::sim::read_error_codes(chip, count, codes); });
}

RUMO_EXPORT int rumo_query_errorstring(uint32_t logic_id, uint32_t code, unsigned char *text,
                                       int32_t size) {
    return run_on_chip(Fn::query_errorstring, logic_id, [&](Chip &chip) {
        return tavo::sim::read_error_string(chip, code, text, size);
    });
}

RUMO_EXPORT int rumo_get_version(uint32_t logic_id, char *text, uint32_t size, uint32_t *length) {
    return run_on_chip(Fn::get_version, logic_id, [&](Chip &chip) {
        return tavo::sim::copy_version_text(chip.version, text, size, length);
    });
}

RUMO_EXPORT int rumo_upgrade_get_component_static_version(uint32_t logic_id, uint8_t component,
                                                          unsigned char *text, uint32_t size,
                                                          uint32_t *length) {
    return run_on_chip(Fn::upgrade_get_component_static_version, logic_id, [&](Chip &chip) {
        return tavo::sim::read_component_version(chip, component, text, size, length);
    });
}

RUMO_EXPORT int rumo_set_user_config(uint32_t logic_id, const char *name, uint32_t size,
                                     const unsigned char *content) {
    return run_on_chip(Fn::set_user_config, logic_id, [&](Chip &chip) {
        return tavo::sim::set_user_config(chip, name, size, content);
    });
}

RUMO_EXPORT int rumo_get_user_config(uint32_t logic_id, const char *name, uint32_t size,
                                     unsigned char *buffer) {
    return run_on_chip(Fn::get_user_config, logic_id, [&](Chip &chip) {
        return tavo::sim::get_user_config(chip, name, size, buffer);
    });
}

RUMO_EXPORT int rumo_clear_user_config(uint32_t logic_id, const char *name) {
    return run_on_chip(Fn::clear_user_config, logic_id,
                       [&](Chip &chip) { return tavo::sim::clear_user_config(chip, name); });
}

RUMO_EXPORT int rumo_config_ssh_enable(uint32_t logic_id, uint32_t enable) {
    return run_on_chip(Fn::config_ssh_enable, logic_id,
                       [&](Chip &chip) { return tavo::sim::set_ssh_enable(chip, enable); });
}

RUMO_EXPORT int rumo_get_ssh_enable(uint32_t logic_id, uint32_t *enable) {
    return run_on_chip(Fn::get_ssh_enable, logic_id,
                       [&](Chip &chip) { return tavo::sim::get_ssh_enable(chip, enable); });
}

RUMO_EXPORT int rumo_pre_reset_soc(uint32_t logic_id) {
    return run_on_chip(Fn::pre_reset_soc, logic_id, [](Chip &) { return RUMO_SIM_OK; });
}

// The MCU of the chip's card answers, when the card has one and this chip holds
// its link; other chips answer that no MCU is behind them.
RUMO_EXPORT int rumo_passthru_mcu(uint32_t logic_id, void *record) {
    return run(Fn::passthru_mcu, [&](Simulator &sim) {
        Simulator::ChipAccess access = sim.open_chip(Fn::passthru_mcu, logic_id);
        return access.code != RUMO_SIM_OK ? access.code : sim.passthru_mcu(*access.chip, record);
    });
}

RUMO_EXPORT int rumo_get_mini2mcu_heartbeat_status(uint32_t logic_id, uint8_t *status,
                                                   uint32_t *counter) {
    return run_on_chip(Fn::get_mini2mcu_heartbeat_status, logic_id, [&](Chip &chip) {
        return tavo::sim::read_heartbeat(chip, status, counter);
    });
}

}  // extern "C"
