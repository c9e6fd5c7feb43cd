// tavoctl list / board-type: the card table as the library sees it.
#include <unistd.h>

#include <array>
#include <string>

#include "commands.h"
#include "tavo/tavo_drv_api.h"
#include "tavo/tavo_pcie.h"
#include "topology.h"

namespace tavoctl {
namespace {

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
    std::vector<Card> cards;
    if (int failed = load_cards(cards); failed != 0) {
        return failed;
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
    const char *name = is_camera_board() ? "fennec" : "pcie-card";
    if (options.json) {
        print_json({{"board_type", name}});
    } else {
        std::printf("%s\n", name);
    }
    return 0;
}

}  // namespace tavoctl

namespace tavoctl {

// Physical slots come from the host's slot records, fault counts from its PCI tree.
int run_slots(const Options &options) {
    std::vector<Card> cards;
    if (int failed = load_cards(cards); failed != 0) {
        return failed;
    }
    const std::string tree = "/tmp/tavoctl_pcie_" + std::to_string(::getpid()) + ".txt";
    bool tree_known = tavo_save_pcie_info(tree.c_str()) == 0;
    if (tree_known) {
        (void)tavo_flush_pcie_device(tree.c_str());
    }
    ::unlink(tree.c_str());
    Table table({"CARD", "PCIE-BUS", "PCIE-SLOT", "FAULT-DEVICES"});
    nlohmann::json list = nlohmann::json::array();
    for (const Card &card : cards) {
        std::array<char, TAVO_BOARD_PCIE_INFO_LEN> bus{};
        (void)tavo_get_board_pcie_info(card.id, bus.data());
        uint32_t slot = TAVO_ABSENT;
        (void)tavo_get_pcie_slot(card.id, &slot);
        uint32_t faults = 0;
        (void)tavo_get_fault_device_num_in_card(card.id, &faults);
        std::string slot_text = slot == TAVO_ABSENT ? "-" : std::to_string(slot);
        table.add({std::to_string(card.id), bus[0] != '\0' ? bus.data() : "-", slot_text,
                   tree_known ? std::to_string(faults) : "-"});
        list.push_back(
            {{"card_id", card.id},
             {"pcie_bus", bus.data()},
             {"pcie_slot", slot == TAVO_ABSENT ? nlohmann::json(nullptr) : nlohmann::json(slot)},
             {"fault_devices", tree_known ? nlohmann::json(faults) : nlohmann::json(nullptr)}});
    }
    if (options.json) {
        print_json({{"cards", list}});
    } else {
        table.print();
    }
    return 0;
}

}  // namespace tavoctl
