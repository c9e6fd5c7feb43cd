// The cards and devices of the host as the library sees them.
#include "topology.h"

#include "output.h"

#include <unistd.h>

#include <array>

#include "tavo/tavo_drv_api.h"
#include "tavo/tavo_pcie.h"

namespace tavoctl {

const char *type_name(int32_t type) {
    switch (type) {
        case TAVO_DEVICE_CHIP:
            return "chip";
        case TAVO_DEVICE_MCU:
            return "mcu";
        case TAVO_DEVICE_EMBEDDED:
            return "embedded";
        default:
            return "unknown";
    }
}

namespace {

constexpr const char *kBoardConfig = "/run/board_cfg.ini";

// The camera board is recognised from the board description when the host has one.
void detect_board_type() {
    if (::access(kBoardConfig, F_OK) == 0) {
        (void)tavo_get_board_type();
    }
}

Device read_device(uint32_t card_id, uint32_t device_id) {
    Device device;
    device.id = device_id;
    if (tavo_get_device_info(&device.type, card_id, device_id) != 0) {
        device.type = -1;
    }
    if (device.type == TAVO_DEVICE_CHIP &&
        tavo_get_device_logic_id(&device.logic_id, card_id, device_id) == 0) {
        device.has_logic_id = true;
    }
    return device;
}

Card read_card(uint32_t card_id) {
    Card card;
    card.id = card_id;
    uint32_t slot = 0;
    if (tavo_get_pcie_slot(card_id, &slot) == 0 && slot != TAVO_ABSENT) {
        card.slot_known = true;
        card.slot = slot;
    }
    int32_t mcu = -1;
    int32_t embedded = -1;
    if (tavo_get_device_num_in_card_api(card_id, &card.chip_count, &mcu, &embedded) != 0) {
        return card;
    }
    for (int32_t d = 0; d < card.chip_count; ++d) {
        card.devices.push_back(read_device(card_id, static_cast<uint32_t>(d)));
    }
    for (int32_t extra : {mcu, embedded}) {
        if (extra >= 0) {
            card.devices.push_back(read_device(card_id, static_cast<uint32_t>(extra)));
        }
    }
    return card;
}

}  // namespace

// The library tells the camera board by the MCU it lacks: before initialisation
// it reports no MCU device there.
bool is_camera_board() {
    int32_t chips = 0, mcu = 0, embedded = 0;
    return tavo_get_device_num_in_card_api(0, &chips, &mcu, &embedded) == 0 && mcu == -1;
}

int initialise() {
    detect_board_type();
    if (is_camera_board()) {
        return tavo_init_inn();
    }
    int ret = tavo_init();
    if (ret == 0) {
        (void)tavo_pcie_slot_map_init();  // so that every command shows physical slots
    }
    return ret;
}

bool read_cards(std::vector<Card> &cards, int &status) {
    std::array<uint32_t, TAVO_MAX_CARDS> ids{};
    int32_t count = 0;
    status = tavo_get_card_num_list(&count, ids.data(), static_cast<int32_t>(ids.size()));
    if (status != 0) {
        return false;
    }
    for (int32_t i = 0; i < count && i < TAVO_MAX_CARDS; ++i) {
        cards.push_back(read_card(ids[static_cast<std::size_t>(i)]));
    }
    return true;
}

int load_cards(std::vector<Card> &cards) {
    int ret = initialise();
    if (ret != 0) {
        return fail("tavo_init", ret);
    }
    if (!read_cards(cards, ret)) {
        return fail("tavo_get_card_num_list", ret);
    }
    return 0;
}

}  // namespace tavoctl
