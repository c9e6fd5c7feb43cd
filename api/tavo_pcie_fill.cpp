#include "api/tavo_pcie_fill.h"

#include "api/tavo_table.h"
#include "base/bounded.h"
#include "rumo/rumo.h"

namespace tavo::api {
namespace {

bool format_address(const rumo_pcie_info &pcie, char (&text)[TAVO_PCIE_TEXT_LEN]) {
    int ret = snprintf_s(text, sizeof text, sizeof text - 1, "0000:%02x:%02x.%x",
                         pcie.bdf_bus & 0xFF, pcie.bdf_device & 0x1F, pcie.bdf_function & 0x7);
    return ret > 0 && tavo::base::formatted_whole(ret, sizeof text - 1);
}

}  // namespace

void fill_pcie_texts() {
    for (int32_t c = 0; c < g_tavoBoardInfo.card_count && c < TAVO_MAX_CARDS; ++c) {
        tavo_card_record &card = g_tavoBoardInfo.cards[c];
        for (int32_t d = 0; d < card.device_count && d < TAVO_MAX_DEVICES_PER_CARD; ++d) {
            tavo_device_record &device = card.devices[d];
            rumo_pcie_info pcie{};
            if (rumo_get_pcie_info(device.logic_id, &pcie) != 0 ||
                !format_address(pcie, device.pcie_path)) {
                continue;
            }
            (void)strcpy_s(device.pci_address, sizeof device.pci_address, device.pcie_path);
            if (d == 0) {
                (void)strcpy_s(card.pcie_bus, sizeof card.pcie_bus, device.pcie_path);
            }
        }
    }
}

}  // namespace tavo::api
