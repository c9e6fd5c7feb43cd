// Card and device topology: lookups on the card table.
#include <array>
#include <cstring>

#include "api/tavo_table.h"
#include "base/bounded.h"
#include "rumo/rumo.h"
#include "tavo/tavo_export.h"

// Driver releases without a heartbeat query still load: the symbol is then null and
// the link is reported as not alive.
#pragma weak rumo_get_mini2mcu_heartbeat_status

namespace tavo::api {

tavo_card_record *find_card(uint32_t card_id) {
    for (int32_t i = 0; i < g_tavoBoardInfo.card_count && i < TAVO_MAX_CARDS; ++i) {
        if (g_tavoBoardInfo.cards[i].card_id == card_id) {
            return &g_tavoBoardInfo.cards[i];
        }
    }
    return nullptr;
}

bool uninitialised_without_devices() {
    return g_tavoBoardInfo.initialised != 1 && g_tavoBoardInfo.total_device_count == 0;
}

}  // namespace tavo::api

namespace {

using tavo::api::find_card;
using tavo::api::uninitialised_without_devices;

constexpr uint32_t kBoardIdServer = 47;
constexpr std::array<uint32_t, 4> kBoardIdsOfCards{1, 3, 5, 200};
constexpr std::array<uint32_t, 4> kElabelIdentityItems{35, 33, 34, 36};

bool initialised() {
    return g_tavoBoardInfo.initialised == 1;
}

bool device_is(uint32_t device_id, uint32_t slot_id) {
    return slot_id != TAVO_ABSENT && device_id == slot_id;
}

// Reads one word of a card record for the position queries: they need an
// initialised table and a known card (an unknown card is not logged).
template <typename Field>
int read_card_word(tavo::log::Site function, uint32_t card_id, uint32_t *out, Field field) {
    if (!initialised()) {
        API_LOG_ERR_FOR(function, "not init.\n\r\n");
        return -1;
    }
    if (out == nullptr) {
        API_LOG_ERR_FOR(function, "input parameter is null.\n\r\n");
        return -1;
    }
    const tavo_card_record *card = find_card(card_id);
    if (card == nullptr) {
        return -1;
    }
    *out = card->*field;
    return 0;
}

struct HeartbeatSlot {
    uint8_t status = 0;
    uint32_t counter = 0;
    uint32_t logic_id = 0;
    uint32_t slot = 0;
};

constexpr uint32_t kChipSlotA = 1;
constexpr uint32_t kChipSlotB = 3;

}  // namespace

extern "C" {

TAVO_API int tavo_get_device_info(int32_t *device_type, uint32_t card_id, uint32_t device_id) {
    if (device_type == nullptr) {
        API_LOG_ERR("input parameter is null.\n\r\n");
        return -1;
    }
    if (uninitialised_without_devices()) {
        *device_type = static_cast<int32_t>(device_id);
        return 0;
    }
    const tavo_card_record *card = find_card(card_id);
    if (card == nullptr) {
        return -1;
    }
    if (static_cast<int64_t>(device_id) < card->device_count) {
        *device_type = TAVO_DEVICE_CHIP;
    } else if (device_is(device_id, card->mcu_device_id)) {
        *device_type = TAVO_DEVICE_MCU;
    } else if (device_is(device_id, card->embedded_device_id)) {
        *device_type = TAVO_DEVICE_EMBEDDED;
    } else {
        API_LOG_ERR("card_id(%d) device_id(%d) >= device_count(%d).\n\r\n",
                    static_cast<int>(card_id), static_cast<int>(device_id), card->device_count);
        return -1;
    }
    return 0;
}

TAVO_API int tavo_get_device_logic_id(uint32_t *logic_id, uint32_t card_id, uint32_t device_id) {
    if (logic_id == nullptr) {
        API_LOG_ERR("input parameter is null.\n\r\n");
        return -1;
    }
    if (uninitialised_without_devices()) {
        *logic_id = device_id;
        return 0;
    }
    const tavo_card_record *card = find_card(card_id);
    if (card == nullptr) {
        API_LOG_ERR("Can not find card (%d) device (%d). Please check the input parameter.\n\r\n",
                    static_cast<int>(card_id), static_cast<int>(device_id));
        return -1;
    }
    if (static_cast<int64_t>(device_id) >= card->device_count ||
        device_id >= TAVO_MAX_DEVICES_PER_CARD) {
        API_LOG_ERR("card (%d) device (%d) >= device_count(%d).\n\r\n", static_cast<int>(card_id),
                    static_cast<int>(device_id), card->device_count);
        return -1;
    }
    *logic_id = card->devices[device_id].logic_id;
    return 0;
}

TAVO_API int tavo_get_card_info(uint32_t card_id, tavo_card_record **card) {
    tavo_card_record *found = find_card(card_id);
    if (found == nullptr) {
        API_LOG_ERR("Can not find card num %d .\n\r\n", static_cast<int>(card_id));
        return -1;
    }
    if (card == nullptr) {
        API_LOG_ERR("input parameter is null.\n\r\n");
        return -1;
    }
    *card = found;
    return 0;
}

TAVO_API int tavo_get_card_num_list(int32_t *count, uint32_t *list, int32_t capacity) {
    if (!initialised()) {
        API_LOG_ERR("not init.\n\r\n");
        return -1;
    }
    if (count == nullptr || (list == nullptr && capacity > 0)) {
        API_LOG_ERR("input parameter is null.\n\r\n");
        return -1;
    }
    for (int32_t i = 0; i < g_tavoBoardInfo.card_count && i < capacity; ++i) {
        list[i] = g_tavoBoardInfo.cards[i].card_id;
    }
    *count = g_tavoBoardInfo.card_count;
    return 0;
}

TAVO_API int tavo_get_total_device_count(void) {
    return static_cast<int>(g_tavoBoardInfo.total_device_count);
}

TAVO_API int tavo_get_device_num_in_card(uint32_t card_id, int32_t *count) {
    if (count == nullptr) {
        API_LOG_ERR("Input device_num error!\n\r\n");
        return -1;
    }
    if (uninitialised_without_devices()) {
        *count = 0;
        return 0;
    }
    const tavo_card_record *card = find_card(card_id);
    if (card == nullptr) {
        API_LOG_ERR("Input card id error!\n\r\n");
        return -1;
    }
    *count = card->device_count;
    return 0;
}

TAVO_API int tavo_get_device_num_in_card_api(uint32_t card_id, int32_t *chip_count,
                                             int32_t *mcu_device_id, int32_t *embedded_device_id) {
    if (chip_count == nullptr || mcu_device_id == nullptr || embedded_device_id == nullptr) {
        API_LOG_ERR("input parameter is null.\n\r\n");
        return -1;
    }
    bool fennec = g_tavoBoardType == TAVO_BOARD_FENNEC;
    if (uninitialised_without_devices()) {
        *chip_count = 0;
        *embedded_device_id = TAVO_DEVICE_EMBEDDED;
        *mcu_device_id = fennec ? -1 : TAVO_DEVICE_MCU;
        return 0;
    }
    const tavo_card_record *card = find_card(card_id);
    if (card == nullptr) {
        return -1;
    }
    *chip_count = card->device_count;
    *embedded_device_id = static_cast<int32_t>(card->embedded_device_id);
    *mcu_device_id = fennec ? -1 : static_cast<int32_t>(card->mcu_device_id);
    return 0;
}

TAVO_API int tavo_get_pcie_slot(uint32_t card_id, uint32_t *slot) {
    return read_card_word(__func__, card_id, slot, &tavo_card_record::pcie_slot);
}

TAVO_API int tavo_get_elable_pos_in_card_api(uint32_t card_id, uint32_t *position) {
    return read_card_word(__func__, card_id, position, &tavo_card_record::elabel_pos);
}

TAVO_API int tavo_get_board_id_pos_in_card_api(uint32_t card_id, uint32_t *position) {
    return read_card_word(__func__, card_id, position, &tavo_card_record::board_id_pos);
}

TAVO_API int tavo_get_fault_device_num_in_card(uint32_t card_id, uint32_t *count) {
    if (!initialised()) {
        return 0;
    }
    const tavo_card_record *card = find_card(card_id);
    if (card == nullptr) {
        return -1;
    }
    if (count == nullptr) {
        API_LOG_ERR("input parameter is null.\n\r\n");
        return -1;
    }
    *count = card->fault_device_count;
    return 0;
}

TAVO_API int tavo_get_board_pcie_info(uint32_t card_id, char *text) {
    if (!initialised()) {
        API_LOG_ERR("not init.\n\r\n");
        return -1;
    }
    const tavo_card_record *card = find_card(card_id);
    if (card == nullptr) {
        return -1;
    }
    if (text == nullptr) {
        API_LOG_ERR("input parameter is null.\n\r\n");
        return -1;
    }
    std::size_t size = strnlen(card->pcie_bus, sizeof card->pcie_bus) + 1;
    if (size >= TAVO_BOARD_PCIE_INFO_LEN + 1) {
        return -1;
    }
    int ret = memcpy_s(text, TAVO_BOARD_PCIE_INFO_LEN, card->pcie_bus,
                       std::min(size, sizeof card->pcie_bus));
    if (ret != 0) {
        API_LOG_ERR("call memcpy_s failed.%d.\n\r\n", ret);
    }
    return 0;
}

TAVO_API int tavo_get_elable_item_it(uint32_t *item_a, uint32_t *item_b, uint32_t *item_c,
                                     uint32_t *item_d) {
    uint32_t *outs[] = {item_a, item_b, item_c, item_d};
    for (std::size_t i = 0; i < kElabelIdentityItems.size(); ++i) {
        if (outs[i] != nullptr) {
            *outs[i] = kElabelIdentityItems[i];
        }
    }
    return 0;
}

TAVO_API int tavo_is_card(void) {
    for (uint32_t id : kBoardIdsOfCards) {
        if (g_tavoBoardInfo.board_id == id) {
            return 1;
        }
    }
    return 0;
}

TAVO_API int tavo_is_server(void) {
    return g_tavoBoardInfo.board_id == kBoardIdServer ? 1 : 0;
}

TAVO_API int tavo_has_minid(void) {
    return 1;
}

TAVO_API int tavo_flush_device_id(void) {
    for (tavo_card_record &card : g_tavoBoardInfo.cards) {
        card.mcu_device_id = TAVO_ABSENT;
        card.embedded_device_id = TAVO_ABSENT;
        card.elabel_pos = 0;
        card.board_id_pos = 0;
    }
    return 0;
}

TAVO_API int tavo_get_mini2mcu_heartbeat_status(uint32_t card_id, uint32_t device_id,
                                                uint8_t *status, uint32_t *counter) {
    uint32_t logic_id = 0;
    int ret = tavo_get_device_logic_id(&logic_id, card_id, device_id);
    if (ret != 0) {
        API_LOG_ERR("call tavo_get_device_logic_id failed.%d.\n\r\n", ret);
        return -1;
    }
    if (rumo_get_mini2mcu_heartbeat_status == nullptr || status == nullptr || counter == nullptr) {
        return 0;
    }
    ret = rumo_get_mini2mcu_heartbeat_status(logic_id, status, counter);
    if (ret != 0) {
        API_LOG_ERR("call rumo_get_mini2mcu_heartbeat_status failed.%d.\n\r\n", ret);
        return -1;
    }
    return 0;
}

TAVO_API int tavo_get_msg_device_logic_id(uint32_t *logic_id, uint32_t *chip_slot,
                                          uint32_t card_id) {
    tavo_card_record *card = nullptr;
    int ret = tavo_get_card_info(card_id, &card);
    if (ret != 0) {
        API_LOG_ERR("call tavo_get_card_info failed.%d.\n\r\n", ret);
        return -1;
    }
    if (logic_id == nullptr || chip_slot == nullptr) {
        API_LOG_ERR("input parameter is null.\n\r\n");
        return -1;
    }
    std::array<HeartbeatSlot, 4> slots{};
    for (int32_t d = 0; d < card->device_count && d < TAVO_MAX_DEVICES_PER_CARD; ++d) {
        uint32_t slot = card->devices[d].chip_slot;
        if (slot != kChipSlotA && slot != kChipSlotB) {
            continue;
        }
        uint8_t status = 0;
        uint32_t counter = 0;
        ret = tavo_get_mini2mcu_heartbeat_status(card_id, static_cast<uint32_t>(d), &status,
                                                 &counter);
        if (ret != 0) {
            API_LOG_ERR("call tavo_get_mini2mcu_heartbeat_status failed %d. Chip slot is %d.\n\r\n",
                        ret, static_cast<int>(slot));
        }
        slots[slot] = {status, counter, card->devices[d].logic_id, slot};
    }
    const HeartbeatSlot &a = slots[kChipSlotA];
    const HeartbeatSlot &b = slots[kChipSlotB];
    const HeartbeatSlot *chosen = nullptr;
    if (a.status == 0 && b.status == 0) {
        API_LOG_ERR("Card %d can not connect with MCU.\r\n", static_cast<int>(card_id));
        return -1;
    } else if (a.status == 1 && b.status == 0) {
        chosen = &a;
    } else if (a.status == 0 && b.status == 1) {
        chosen = &b;
    } else if (a.status == 1 && b.status == 1) {
        // Equal counters go to slot 3.
        chosen = a.counter >= b.counter ? &b : &a;
    } else {
        API_LOG_ERR("rumo_get_mini2mcu_heartbeat_status return error parameter %d.\r\n", a.status);
        return -1;
    }
    *logic_id = chosen->logic_id;
    *chip_slot = chosen->slot;
    return 0;
}

TAVO_API int tavo_get_pcie_info_from_host(uint32_t /*unused_a*/, uint32_t /*unused_b*/) {
    return 0;
}

}  // extern "C"
