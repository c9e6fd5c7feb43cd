// Operations that change a device's state or configuration.
#include <unistd.h>

#include "api/tavo_route.h"
#include "api/tavo_table.h"
#include "rumo/rumo.h"
#include "tavo/driver_ipmi.h"
#include "tavo/driver_pci.h"
#include "tavo/tavo_control.h"
#include "tavo/tavo_export.h"
#include "tavo/tavo_kite.h"
#include "tavo/tavo_mcu.h"

namespace {

constexpr const char *kSshItem = "ssh_status";
// Bridge control register of the chip's PCIe port and its secondary-bus-reset bit.
constexpr uint32_t kBridgeControlOffset = 0x50;
constexpr uint8_t kSecondaryBusReset = 0x10;
constexpr unsigned kHotResetSettleSeconds = 1;

// The chip operations that only check that the chip exists.
int accept_on_chip(tavo::log::Site function, uint32_t card_id, uint32_t device_id) {
    uint32_t logic_id = 0;
    return tavo::api::resolve_chip(function, card_id, device_id, logic_id) ? 0 : -1;
}

// The PCI address of a chip for the two halves of a hot reset; nullptr (logged) when
// the card or the device is unknown.
const char *chip_pci_address(tavo::log::Site function, uint32_t card_id, uint32_t device_id) {
    tavo_card_record *card = nullptr;
    int ret = tavo_get_card_info(card_id, &card);
    if (ret != 0) {
        API_LOG_ERR_FOR(function, "call tavo_get_card_info failed.%d.\n\r\n", ret);
        return nullptr;
    }
    if (device_id >= TAVO_MAX_DEVICES_PER_CARD) {
        API_LOG_ERR_FOR(function, "device id %u is out of range.\n\r\n", device_id);
        return nullptr;
    }
    return card->devices[device_id].pci_address;
}

// One record per request, then one per content byte, before anything is checked.
void audit_user_config(tavo::log::Site function, uint32_t card_id, uint32_t device_id,
                       const char *name, uint32_t size, const unsigned char *content) {
    API_LOG_OP_FOR(function, "User Config Info:card_id=%d, device_id=%d\n,config_name=%s\r\n",
                   static_cast<int>(card_id), static_cast<int>(device_id),
                   name != nullptr ? name : "(null)");
    for (uint32_t i = 0; content != nullptr && i < size; ++i) {
        API_LOG_OP_FOR(function, "Config Content:buf[%d]=%d.\n\r\n", static_cast<int>(i),
                       static_cast<int>(content[i]));
    }
}

}  // namespace

extern "C" {

TAVO_API int tavo_reset_device(uint32_t card_id, uint32_t device_id) {
    uint32_t slot = 0;
    int ret = tavo_get_pcie_slot(card_id, &slot);
    if (ret != 0) {
        API_LOG_ERR("Call tavo_get_pcie_slot failed.%d.\n\r\n", ret);
        return ret;
    }
    ret = DriverIpmiResetMini(slot, device_id);
    if (ret != 0) {
        API_LOG_ERR("Call DriverIpmiResetMini failed.%d.\n\r\n", ret);
        return ret;
    }
    uint8_t state = 1;
    ret = DriverIpmiGetMini(slot, device_id, &state);
    if (ret != 0) {
        API_LOG_ERR("Call DriverIpmiGetMini failed.%d.\n\r\n", ret);
        return ret;
    }
    if (state != 0) {
        ret = DriverIpmiResetMini(slot, device_id);
        if (ret != 0) {
            API_LOG_ERR("Call DriverIpmiResetMini failed again.%d.\n\r\n", ret);
            return ret;
        }
    }
    return 0;
}

TAVO_API int tavo_pre_reset_soc(uint32_t card_id, uint32_t device_id) {
    const char *address = chip_pci_address(__func__, card_id, device_id);
    if (address == nullptr) {
        return -1;
    }
    ::sleep(kHotResetSettleSeconds);
    int ret = PcidrWriteConfByte(address, kBridgeControlOffset, kSecondaryBusReset);
    if (ret != 0) {
        API_LOG_ERR("call rumo_pre_reset_soc failed.%d.\n\r\n", ret);
        return -1;
    }
    return 0;
}

TAVO_API int tavo_rescan_soc(uint32_t card_id, uint32_t device_id) {
    const char *address = chip_pci_address(__func__, card_id, device_id);
    if (address == nullptr) {
        return -1;
    }
    int ret = PcidrWriteConfByte(address, kBridgeControlOffset, 0);
    if (ret != 0) {
        API_LOG_ERR("call PcidrWriteConfByte failed.%d.\n\r\n", ret);
        return -1;
    }
    ::sleep(kHotResetSettleSeconds);
    return 0;
}

TAVO_API int tavo_config_p2p_enable(uint32_t card_id, uint32_t device_id) {
    return accept_on_chip(__func__, card_id, device_id);
}

TAVO_API int tavo_get_p2p_enable(uint32_t card_id, uint32_t device_id) {
    return accept_on_chip(__func__, card_id, device_id);
}

TAVO_API int tavo_config_ecc_enable(uint32_t card_id, uint32_t device_id) {
    return accept_on_chip(__func__, card_id, device_id);
}

TAVO_API int tavo_get_device_boot_status(uint32_t card_id, uint32_t device_id) {
    return accept_on_chip(__func__, card_id, device_id);
}

TAVO_API int tavo_get_elable(uint32_t card_id, uint32_t device_id) {
    return accept_on_chip(__func__, card_id, device_id);
}

TAVO_API int tavo_config_ssh_enable(uint32_t card_id, uint32_t device_id, uint32_t enable) {
    uint32_t logic_id = 0;
    if (!tavo::api::resolve_chip(__func__, card_id, device_id, logic_id)) {
        return -1;
    }
    const unsigned char value = static_cast<unsigned char>(enable);
    int ret = rumo_set_user_config(logic_id, kSshItem, 1, &value);
    if (ret != 0) {
        // Named after the operation, not the call made.
        API_LOG_ERR("call rumo_config_ssh_enable failed.%d.\n\r\n", ret);
        return -1;
    }
    return 0;
}

TAVO_API int tavo_get_ssh_enable(uint32_t card_id, uint32_t device_id, uint32_t *enable) {
    uint32_t logic_id = 0;
    if (!tavo::api::resolve_chip(__func__, card_id, device_id, logic_id)) {
        return -1;
    }
    unsigned char value = 0;
    int ret = rumo_get_user_config(logic_id, kSshItem, 1, &value);
    if (ret != 0) {
        API_LOG_ERR("call rumo_get_ssh_enable failed.%d.\n\r\n", ret);
        return -1;
    }
    if (enable != nullptr) {
        *enable = value;
    }
    return 0;
}

TAVO_API int tavo_set_user_config(uint32_t card_id, uint32_t device_id, const char *name,
                                  uint32_t size, const unsigned char *content) {
    uint32_t logic_id = 0;
    if (!tavo::api::resolve_chip(__func__, card_id, device_id, logic_id)) {
        return -1;
    }
    int ret = rumo_set_user_config(logic_id, name, size, content);
    if (ret != 0) {
        API_LOG_ERR("call rumo_set_user_config failed.%d.\n\r\n", ret);
        return -1;
    }
    return 0;
}

TAVO_API int tavo_reset_device_api(uint32_t card_id, uint32_t device_id) {
    return ROUTE(CHIP(tavo_reset_device), BY_CARD(tavo_mcu_reset_device),
                 BY_CARD(tavo_kite_reset_device));
}

TAVO_API int tavo_set_p2p_enable_api(uint32_t card_id, uint32_t device_id, uint32_t enable) {
    return ROUTE(CHIP(tavo_config_p2p_enable), BY_CARD(tavo_mcu_config_p2p_enable, enable),
                 BY_CARD(tavo_kite_config_p2p_enable, enable));
}

TAVO_API int tavo_get_p2p_enable_api(uint32_t card_id, uint32_t device_id, uint32_t *enable) {
    return ROUTE(CHIP(tavo_get_p2p_enable), BY_CARD(tavo_mcu_get_p2p_enable, enable),
                 BY_CARD(tavo_kite_get_p2p_enable, enable));
}

TAVO_API int tavo_set_ssh_enable_api(uint32_t card_id, uint32_t device_id, uint32_t enable) {
    return ROUTE(CHIP(tavo_config_ssh_enable, enable), tavo::api::kRefused, tavo::api::kRefused);
}

TAVO_API int tavo_config_ecc_enable_api(uint32_t card_id, uint32_t device_id, uint32_t enable) {
    return ROUTE(CHIP(tavo_config_ecc_enable), BY_CARD(tavo_mcu_config_ecc_enable, enable),
                 BY_CARD(tavo_kite_config_ecc_enable, enable));
}

TAVO_API int tavo_set_user_config_api(uint32_t card_id, uint32_t device_id, const char *name,
                                      uint32_t size, const unsigned char *content) {
    audit_user_config(__func__, card_id, device_id, name, size, content);
    return ROUTE(CHIP(tavo_set_user_config, name, size, content), tavo::api::kRefused,
                 tavo::api::kRefused);
}

TAVO_API int tavo_get_elable_api(uint32_t card_id, uint32_t device_id, uint32_t item,
                                 uint8_t *buffer, uint16_t *length) {
    return ROUTE(CHIP(tavo_get_elable), BY_CARD(tavo_mcu_get_elable_info, item, buffer, length),
                 BY_CARD(tavo_kite_get_elable, item, buffer, length));
}

TAVO_API int tavo_get_boot_area_api(uint32_t card_id, uint32_t device_id, uint32_t *area) {
    return ROUTE(tavo::api::kRefused, BY_CARD(tavo_mcu_get_boot_area, area), tavo::api::kRefused);
}

TAVO_API int tavo_switch_boot_area_api(uint32_t card_id, uint32_t device_id) {
    return ROUTE(tavo::api::kRefused, BY_CARD(tavo_mcu_set_boot_area), tavo::api::kRefused);
}

}  // extern "C"
