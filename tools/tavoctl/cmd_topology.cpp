// tavoctl list / board-type: the card table as the library sees it.
#include <unistd.h>

#include <array>
#include <string>

#include "commands.h"
#include "tavo/tavo_drv_api.h"

namespace tavoctl {
namespace {

constexpr const char *kBoardConfig = "/run/board_cfg.ini";

struct Device {
    uint32_t id = 0;
    int32_t type = -1;
    bool has_logic_id = false;
    uint32_t logic_id = 0;
};

struct Card {
    uint32_t id = 0;
    bool slot_known = false;
    uint32_t slot = 0;
    int32_t chip_count = 0;
    std::vector<Device> devices;
};

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

nlohmann::json to_json(const Card &card) {
    nlohmann::json devices = nlohmann::json::array();
    for (const Device &d : card.devices) {
        devices.push_back({{"device_id", d.id},
                           {"type", type_name(d.type)},
                           {"logic_id", d.has_logic_id ? nlohmann::json(d.logic_id) : nullptr}});
    }
    return {{"card_id", card.id},
            {"pcie_slot", card.slot_known ? nlohmann::json(card.slot) : nullptr},
            {"chip_count", card.chip_count},
            {"devices", devices}};
}

void print_cards(const std::vector<Card> &cards) {
    Table table({"CARD", "PCIE-SLOT", "DEVICE", "TYPE", "LOGIC-ID"});
    for (const Card &card : cards) {
        std::string slot = card.slot_known ? std::to_string(card.slot) : "-";
        if (card.devices.empty()) {
            table.add({std::to_string(card.id), slot, "-", "-", "-"});
        }
        for (const Device &d : card.devices) {
            table.add({std::to_string(card.id), slot, std::to_string(d.id), type_name(d.type),
                       d.has_logic_id ? std::to_string(d.logic_id) : "-"});
        }
    }
    table.print();
}

}  // namespace

int run_list(const Options &options) {
    detect_board_type();
    int ret = tavo_init();
    if (ret != 0) {
        return fail("tavo_init", ret);
    }
    std::array<uint32_t, TAVO_MAX_CARDS> ids{};
    int32_t count = 0;
    ret = tavo_get_card_num_list(&count, ids.data(), static_cast<int32_t>(ids.size()));
    if (ret != 0) {
        return fail("tavo_get_card_num_list", ret);
    }
    std::vector<Card> cards;
    for (int32_t i = 0; i < count && i < TAVO_MAX_CARDS; ++i) {
        cards.push_back(read_card(ids[static_cast<std::size_t>(i)]));
    }
    if (options.json) {
        nlohmann::json list = nlohmann::json::array();
        for (const Card &card : cards) {
            list.push_back(to_json(card));
        }
        print_json({{"total_device_count", tavo_get_total_device_count()}, {"cards", list}});
    } else {
        print_cards(cards);
    }
    return 0;
}

int run_board_type(const Options &options) {
    int ret = tavo_get_board_type();
    if (ret != 0) {
        return fail("tavo_get_board_type", ret);
    }
    // The library keeps the variant to itself; a card that reports no MCU on
    // an empty table is the camera board.
    int32_t chips = 0, mcu = 0, embedded = 0;
    (void)tavo_get_device_num_in_card_api(0, &chips, &mcu, &embedded);
    const char *name = mcu == -1 ? "fennec" : "pcie-card";
    if (options.json) {
        print_json({{"board_type", name}});
    } else {
        std::printf("%s\n", name);
    }
    return 0;
}

}  // namespace tavoctl
