// The functions of librumo.so.1, for call counts and injected failures.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

namespace tavo::sim {

enum class Fn : std::size_t {
    get_device_count,
    list_device,
    get_board_info,
    get_chip_info,
    get_pcie_info,
    get_device_temperature,
    get_device_voltage,
    get_device_power_info,
    get_device_frequency,
    get_device_utilization_rate,
    get_device_die,
    get_device_ndie,
    get_aicore_info,
    get_soc_sensor_info,
    get_system_time,
    get_memory_info,
    get_hbm_info,
    get_ecc_info,
    get_device_flash_count,
    get_device_flash_info,
    get_device_health,
    get_device_errorcode,
    query_errorstring,
    get_version,
    upgrade_get_component_static_version,
    set_user_config,
    get_user_config,
    clear_user_config,
    config_ssh_enable,
    get_ssh_enable,
    pre_reset_soc,
    passthru_mcu,
    get_mini2mcu_heartbeat_status,
};

inline constexpr std::size_t kFunctionCount =
    static_cast<std::size_t>(Fn::get_mini2mcu_heartbeat_status) + 1;

// Names in the order of Fn.
inline constexpr std::array<std::string_view, kFunctionCount> kFunctionNames = {
    "rumo_get_device_count",
    "rumo_list_device",
    "rumo_get_board_info",
    "rumo_get_chip_info",
    "rumo_get_pcie_info",
    "rumo_get_device_temperature",
    "rumo_get_device_voltage",
    "rumo_get_device_power_info",
    "rumo_get_device_frequency",
    "rumo_get_device_utilization_rate",
    "rumo_get_device_die",
    "rumo_get_device_ndie",
    "rumo_get_aicore_info",
    "rumo_get_soc_sensor_info",
    "rumo_get_system_time",
    "rumo_get_memory_info",
    "rumo_get_hbm_info",
    "rumo_get_ecc_info",
    "rumo_get_device_flash_count",
    "rumo_get_device_flash_info",
    "rumo_get_device_health",
    "rumo_get_device_errorcode",
    "rumo_query_errorstring",
    "rumo_get_version",
    "rumo_upgrade_get_component_static_version",
    "rumo_set_user_config",
    "rumo_get_user_config",
    "rumo_clear_user_config",
    "rumo_config_ssh_enable",
    "rumo_get_ssh_enable",
    "rumo_pre_reset_soc",
    "rumo_passthru_mcu",
    "rumo_get_mini2mcu_heartbeat_status",
};

constexpr std::optional<Fn> function_by_name(std::string_view name) {
    for (std::size_t i = 0; i < kFunctionCount; ++i) {
        if (kFunctionNames[i] == name) {
            return static_cast<Fn>(i);
        }
    }
    return std::nullopt;
}

// Functions that address a chip (all but the two that list the host).
constexpr bool addresses_chip(Fn fn) {
    return fn != Fn::get_device_count && fn != Fn::list_device;
}

}  // namespace tavo::sim
