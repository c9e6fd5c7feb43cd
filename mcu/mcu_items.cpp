// The MCU's information items: each query is one or a few exchanges with a fixed
// command, plus decoding. Values are passed on as the MCU reports them.
#include <array>
#include <cstring>

#include "api/tavo_table.h"
#include "base/bounded.h"
#include "mcu/mcu_frame.h"
#include "tavo/tavo_export.h"

namespace {

using tavo::mcu::kItemMax;

constexpr uint32_t kWordLength1 = 1;
constexpr uint32_t kWordLength2 = 2;
constexpr uint32_t kVersionLength = 3;
constexpr uint32_t kFirstFrame = TAVO_MCU_FRAME_DATA_MAX;
constexpr uint32_t kErrorCodeWidth = 2;
constexpr uint8_t kLinkTestParameter = 2;
constexpr uint8_t kBootAreaPayload = 0;
constexpr char kMcuChipName[] = "MCU";

bool missing(tavo::log::Site function, const void *pointer) {
    if (pointer == nullptr) {
        API_LOG_ERR_FOR(function, "input parameter is null.\n\r\n");
        return true;
    }
    return false;
}

// A word item stored into the caller's output.
template <typename Out>
int read_word(tavo::log::Site function, uint32_t card_id, uint16_t command, uint32_t length,
              Out *out) {
    if (missing(function, out)) {
        return -1;
    }
    uint32_t value = 0;
    int ret = tavo_mcu_get_fix_word(card_id, 0, command, length, &value);
    if (ret != 0) {
        return ret;
    }
    *out = static_cast<Out>(value);
    return 0;
}

// A long item read with a first frame of 20 bytes.
int read_long(uint32_t card_id, uint8_t argument, uint16_t command, const uint8_t *parameter,
              uint32_t parameter_length, uint8_t *output, uint32_t *length) {
    return tavo_mcu_get_info_dynamic(card_id, argument, command, kFirstFrame, parameter,
                                     parameter_length, output, length);
}

// Bounded append of one part of the version text at `used`.
int append_part(char *text, std::size_t &used, int value, bool dot) {
    std::size_t limit = kItemMax - 1 - used;
    int printed = dot ? snprintf_s(text + used, kItemMax - used, limit, "%d.", value)
                      : snprintf_s(text + used, kItemMax - used, limit, "%d", value);
    if (!tavo::base::formatted_whole(printed, limit)) {
        API_LOG_ERR_FOR("tavo_mcu_get_version", "call tavo_mcu_get_info_fix fail.ret(%d)\r\n",
                        printed);
        return -1;
    }
    used += static_cast<std::size_t>(printed);
    return 0;
}

// The decimal value of each byte, dot-separated.
int format_version(std::span<const uint8_t> bytes, char *text) {
    std::size_t used = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (append_part(text, used, bytes[i], i + 1 < bytes.size()) != 0) {
            return -1;
        }
    }
    return 0;
}

// One board-info word; `what` names it in the failure record.
int read_board_word(uint32_t card_id, uint16_t command, uint32_t length, uint32_t &field,
                    const char *what) {
    int ret = tavo_mcu_get_fix_word(card_id, 0, command, length, &field);
    if (ret != 0) {
        API_LOG_ERR_FOR("tavo_mcu_get_board_info", "get mcu %s id fail.ret(%d)\n\r\n", what, ret);
    }
    return ret;
}

}  // namespace

extern "C" {

TAVO_API int tavo_mcu_get_health(uint32_t card_id, uint32_t *health) {
    return read_word(__func__, card_id, TAVO_MCU_CMD_HEALTH, kWordLength1, health);
}

TAVO_API int tavo_mcu_get_device_errorcode(uint32_t card_id, uint32_t *count, void *codes,
                                           uint32_t *code_width) {
    if (missing(__func__, count) || missing(__func__, codes) || missing(__func__, code_width)) {
        return -1;
    }
    auto *bytes = static_cast<uint8_t *>(codes);
    uint32_t length = 0;
    int ret = read_long(card_id, 0, TAVO_MCU_CMD_ERROR_CODE, nullptr, 0, bytes, &length);
    if (ret != 0) {
        API_LOG_ERR("call tavo_mcu_get_info_dynamic fail %d.\r\n", ret);
        return ret;
    }
    // A single code 0 is the MCU's way of saying "no error".
    *count = length == kErrorCodeWidth && bytes[0] == 0 ? 0 : length / kErrorCodeWidth;
    *code_width = kErrorCodeWidth;
    return 0;
}

TAVO_API int tavo_mcu_get_temperature(uint32_t card_id, int32_t *temperature) {
    return read_word(__func__, card_id, TAVO_MCU_CMD_TEMPERATURE, kWordLength2, temperature);
}

TAVO_API int tavo_mcu_get_power_info(uint32_t card_id, uint32_t *power) {
    return read_word(__func__, card_id, TAVO_MCU_CMD_POWER, kWordLength2, power);
}

TAVO_API int tavo_mcu_get_voltage(uint32_t card_id, uint32_t *voltage) {
    return read_word(__func__, card_id, TAVO_MCU_CMD_VOLTAGE, kWordLength2, voltage);
}

TAVO_API int tavo_mcu_get_version(uint32_t card_id, char *text, uint32_t *length) {
    if (missing(__func__, text) || missing(__func__, length)) {
        return -1;
    }
    std::array<uint8_t, kItemMax> buffer{};
    uint32_t count = 0;
    int ret = tavo_mcu_get_info_fix(card_id, 0, TAVO_MCU_CMD_VERSION, kVersionLength, buffer.data(),
                                    &count);
    if (ret != 0) {
        API_LOG_ERR("call tavo_mcu_get_info_fix fail.ret(%d)\r\n", ret);
        return -1;
    }
    text[0] = '\0';
    // The MCU decides how many parts its version has; a piece never exceeds the buffer.
    std::span<const uint8_t> bytes(buffer.data(), std::min<std::size_t>(count, buffer.size()));
    if (format_version(bytes, text) != 0) {
        return -1;
    }
    *length = static_cast<uint32_t>(strnlen(text, kItemMax));
    return 0;
}

TAVO_API int tavo_mcu_get_sn(uint32_t card_id, uint8_t *buffer, uint32_t *length) {
    return read_long(card_id, 0, TAVO_MCU_CMD_SN, nullptr, 0, buffer, length);
}

TAVO_API int tavo_mcu_get_board_id(uint32_t card_id, uint32_t *board_id) {
    return read_word(__func__, card_id, TAVO_MCU_CMD_BOARD_ID, kWordLength2, board_id);
}

TAVO_API int tavo_mcu_get_pcb_id(uint32_t card_id, uint32_t *pcb_id) {
    return read_word(__func__, card_id, TAVO_MCU_CMD_PCB_ID, kWordLength1, pcb_id);
}

TAVO_API int tavo_mcu_get_bom_id(uint32_t card_id, uint32_t *bom_id) {
    return read_word(__func__, card_id, TAVO_MCU_CMD_BOM_ID, kWordLength1, bom_id);
}

TAVO_API int tavo_mcu_get_elable_info(uint32_t card_id, uint32_t item, uint8_t *buffer,
                                      uint16_t *length) {
    if (missing(__func__, length)) {
        return -1;
    }
    uint32_t full_length = 0;
    int ret = read_long(card_id, static_cast<uint8_t>(item), TAVO_MCU_CMD_ELABEL, nullptr, 0,
                        buffer, &full_length);
    if (ret != 0) {
        return ret;
    }
    // A long read never returns more than 255 bytes.
    *length = static_cast<uint16_t>(full_length);
    return 0;
}

TAVO_API int tavo_mcu_get_iic_to_miniD_status(uint32_t card_id, uint8_t *text, uint32_t *length) {
    const uint8_t parameter = kLinkTestParameter;
    int ret = read_long(card_id, 0, TAVO_MCU_CMD_PERIPHERAL_RESULT, &parameter, 1, text, length);
    if (ret != 0) {
        API_LOG_ERR("call tavo_mcu_get_info_dynamic failed.%d.\n\r\n", ret);
    }
    return ret;
}

TAVO_API int tavo_mcu_get_board_info(uint32_t card_id, rumo_board_info *info) {
    if (missing(__func__, info)) {
        return -1;
    }
    info->bom_id = 0;
    info->slot_id = 0;
    int ret =
        read_board_word(card_id, TAVO_MCU_CMD_BOARD_ID, kWordLength2, info->board_id, "board");
    if (ret != 0) {
        return ret;
    }
    ret = read_board_word(card_id, TAVO_MCU_CMD_PCB_ID, kWordLength1, info->pcb_id, "pcb");
    if (ret != 0) {
        return ret;
    }
    return read_board_word(card_id, TAVO_MCU_CMD_BOM_ID, kWordLength1, info->bom_id, "bom");
}

TAVO_API int tavo_mcu_get_chip_info(uint32_t /*card_id*/, rumo_chip_info *info) {
    if (missing(__func__, info)) {
        return -1;
    }
    int ret = memcpy_s(info->chip_name, sizeof info->chip_name, kMcuChipName, sizeof kMcuChipName);
    if (ret != 0) {
        API_LOG_ERR("call memcpy_s failed.%d.\n\r\n", ret);
    }
    return 0;
}

TAVO_API int tavo_mcu_get_boot_area(uint32_t card_id, uint32_t *area) {
    return read_word(__func__, card_id, TAVO_MCU_CMD_GET_BOOT_AREA, kWordLength1, area);
}

TAVO_API int tavo_mcu_set_boot_area(uint32_t card_id) {
    // The MCU decides which area "switch" selects; the payload is always 0.
    const uint8_t payload = kBootAreaPayload;
    return tavo_mcu_set_info_simple(card_id, TAVO_MCU_CMD_SET_BOOT_AREA, 1, &payload);
}

TAVO_API int tavo_mcu_reset_device(uint32_t /*card_id*/) {
    return TAVO_NOT_SUPPORTED;
}

TAVO_API int tavo_mcu_config_p2p_enable(uint32_t /*card_id*/, uint32_t /*enable*/) {
    return TAVO_NOT_SUPPORTED;
}

TAVO_API int tavo_mcu_get_p2p_enable(uint32_t /*card_id*/, uint32_t * /*enable*/) {
    return TAVO_NOT_SUPPORTED;
}

TAVO_API int tavo_mcu_get_device_frequency(uint32_t /*card_id*/, uint32_t /*kind*/,
                                           uint32_t * /*frequency*/) {
    return TAVO_NOT_SUPPORTED;
}

TAVO_API int tavo_mcu_get_device_utilization_rate(uint32_t /*card_id*/, uint32_t /*kind*/,
                                                  uint32_t * /*rate*/) {
    return TAVO_NOT_SUPPORTED;
}

TAVO_API int tavo_mcu_config_ecc_enable(uint32_t /*card_id*/, uint32_t /*enable*/) {
    return TAVO_NOT_SUPPORTED;
}

TAVO_API int tavo_mcu_get_ecc_info(uint32_t /*card_id*/, uint32_t /*kind*/,
                                   rumo_ecc_info * /*info*/) {
    return TAVO_NOT_SUPPORTED;
}

TAVO_API int tavo_mcu_get_device_flash_count(uint32_t /*card_id*/, uint32_t * /*count*/) {
    return TAVO_NOT_SUPPORTED;
}

TAVO_API int tavo_mcu_get_device_flash_info(uint32_t /*card_id*/, uint32_t /*index*/,
                                            rumo_flash_info * /*info*/) {
    return TAVO_NOT_SUPPORTED;
}

TAVO_API int tavo_mcu_get_memory_info(uint32_t /*card_id*/, rumo_memory_info * /*info*/) {
    return TAVO_NOT_SUPPORTED;
}

TAVO_API int tavo_mcu_get_device_errorinfo(uint32_t /*card_id*/, uint32_t /*code*/,
                                           unsigned char * /*text*/, uint32_t /*size*/) {
    return TAVO_NOT_SUPPORTED;
}

TAVO_API int tavo_mcu_get_monitor_enable(uint32_t /*card_id*/, uint32_t * /*enable*/) {
    return TAVO_NOT_SUPPORTED;
}

TAVO_API int tavo_mcu_set_monitor_enable(uint32_t /*card_id*/, uint32_t /*enable*/) {
    return TAVO_NOT_SUPPORTED;
}

TAVO_API int tavo_mcu_get_device_die(uint32_t /*card_id*/, rumo_die_id * /*die*/) {
    return TAVO_NOT_SUPPORTED;
}

}  // extern "C"
