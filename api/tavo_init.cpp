// Initialisation of the card table and board-variant detection.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "api/tavo_board_description.h"
#include "api/tavo_pcie_fill.h"
#include "api/tavo_table.h"
#include "base/bounded.h"
#include "base/unique_file.h"
#include "rumo/rumo.h"
#include "tavo/tavo_export.h"

extern "C" {
tavo_card_table g_tavoBoardInfo{};
int32_t g_tavoBoardType = TAVO_BOARD_PCIE_CARD;
int32_t g_mcuExist = 1;
}

namespace {

using tavo::base::UniqueFile;

constexpr std::size_t kBoardConfigReadMax = 1023;
constexpr std::string_view kBoardTypeKey = "board_type=";
constexpr std::string_view kFennec = "fennec";

// A host can report more chips than the table has card records; the first
// TAVO_MAX_CARDS are managed.
int32_t managed_chip_count(int32_t reported) {
    return std::min<int32_t>(reported, TAVO_MAX_CARDS);
}

void fill_card(tavo_card_record &card, const rumo_board_info &info, uint32_t logic_id) {
    card.card_id = info.slot_id;
    card.device_count = 1;
    card.devices[0].logic_id = logic_id;
}

// Physical slots are known only once the PCIe slot map has placed a card.
void mark_slots_unmapped() {
    for (tavo_card_record &card : g_tavoBoardInfo.cards) {
        card.pcie_slot = TAVO_ABSENT;
    }
}

bool file_exists(const char *path) {
    return ::access(path, F_OK) == 0;
}

// "board_type=" counts only at the start of a line.
bool key_starts_a_line(const char *text, const char *key) {
    return key == text || key[-1] == '\n';
}

}  // namespace

TAVO_API int isVirtualMechine(void) {
    return 0;
}

extern "C" {

TAVO_API int tavo_init(void) {
    g_mcuExist = isVirtualMechine() != 0 ? 0 : 1;
    return tavo_pallas_init();
}

TAVO_API int tavo_pallas_init(void) {
    if (g_tavoBoardInfo.initialised == 1) {
        return 0;
    }
    int32_t count = 0;
    if (rumo_get_device_count(&count) != 0 || count < 1) {
        API_LOG_ERR("call function rumo_get_device_count fail\n\r\n");
        return -1;
    }
    std::array<uint32_t, RUMO_MAX_DEVICES> list{};
    if (rumo_list_device(list.data(), std::min<int32_t>(count, RUMO_MAX_DEVICES)) != 0) {
        API_LOG_ERR("call function rumo_list_device fail\n\r\n");
        return -1;
    }
    if (managed_chip_count(count) < count) {
        API_LOG_ERR(
            "device count %d exceeds the card table, only the first %d chips are managed.\n\r\n",
            count, TAVO_MAX_CARDS);
        count = managed_chip_count(count);
    }
    g_tavoBoardInfo.card_count = count;
    g_tavoBoardInfo.total_device_count = static_cast<uint32_t>(count);
    bool board_id_known = false;
    for (int32_t i = 0; i < count; ++i) {
        uint32_t logic_id = list[static_cast<std::size_t>(i)];
        rumo_board_info info{};
        int ret = rumo_get_board_info(logic_id, &info);
        if (ret != 0) {
            // The chip's record keeps card id 0 and no device.
            API_LOG_ERR("call rumo_get_board_info failed.%d. %s %d %s.\n\r\n", ret, "Get chip",
                        static_cast<int>(logic_id),
                        "board information failed. Reboot OS to repair if necessary");
            continue;
        }
        if (!board_id_known) {
            g_tavoBoardInfo.board_id = info.board_id;
            board_id_known = true;
        }
        fill_card(g_tavoBoardInfo.cards[i], info, logic_id);
    }
    mark_slots_unmapped();
    (void)tavo_flush_device_id();
    tavo::api::apply_board_description();
    tavo::api::fill_pcie_texts();
    g_tavoBoardInfo.initialised = 1;
    return 0;
}

TAVO_API int tavo_init_inn(void) {
    if (g_tavoBoardInfo.initialised == 1) {
        return 0;
    }
    g_tavoBoardInfo.card_count = 1;
    tavo_card_record &card = g_tavoBoardInfo.cards[0];
    card.card_id = 0;
    card.device_count = 1;
    card.devices[0].logic_id = 0;
    mark_slots_unmapped();
    (void)tavo_flush_device_id();
    bool no_minid = file_exists(tavo::api::kNoMinidMarkerPath);
    g_tavoBoardInfo.no_minid = no_minid ? 1 : 0;
    g_tavoBoardInfo.total_device_count = no_minid ? 0 : 1;
    card.device_count = no_minid ? 0 : 1;
    tavo::api::apply_board_description();
    g_tavoBoardInfo.initialised = 1;
    return 0;
}

TAVO_API void tavo_retry_init(void) {
    int32_t count = 0;
    int ret = rumo_get_device_count(&count);
    if (ret != 0) {
        API_LOG_ERR("Call rumo_get_device_count failed. %d.\n\r\n", ret);
        return;
    }
    int64_t known = 0;
    for (const tavo_card_record &card : g_tavoBoardInfo.cards) {
        known += card.device_count;
    }
    if (known != count) {
        if (memset_s(&g_tavoBoardInfo, sizeof g_tavoBoardInfo, 0, sizeof g_tavoBoardInfo) != 0) {
            API_LOG_ERR("call memset_s failed.\n\r\n");
        }
        (void)tavo_init();
    }
}

TAVO_API int tavo_get_board_type(void) {
    UniqueFile file{std::fopen(tavo::api::kBoardConfigPath, "r")};
    if (!file) {
        API_LOG_ERR("open config file(%s) failed.\n\r\n", tavo::api::kBoardConfigPath);
        return -1;
    }
    if (std::fseek(file.get(), 0, SEEK_SET) != 0) {
        API_LOG_ERR("call fseek failed.\n\r\n");
        return -1;
    }
    std::array<char, kBoardConfigReadMax + 1> text{};
    std::size_t read_count = std::fread(text.data(), 1, kBoardConfigReadMax, file.get());
    if (read_count == 0) {
        API_LOG_ERR("call fread failed.read_count=%d\n\r\n", static_cast<int>(read_count));
        return -1;
    }
    const char *key = std::strstr(text.data(), kBoardTypeKey.data());
    if (key == nullptr || !key_starts_a_line(text.data(), key)) {
        return -1;
    }
    if (std::string_view(key + kBoardTypeKey.size()).starts_with(kFennec)) {
        g_tavoBoardType = TAVO_BOARD_FENNEC;
    }
    API_LOG_INFO("g_tavoBoardType = %d.\n\r\n", g_tavoBoardType);
    return 0;
}

TAVO_API int tavo_check_run_in_vm(void) {
    return g_tavoBoardInfo.in_virtual_machine != 0 && tavo_is_card() != 0 ? 1 : 0;
}

}  // extern "C"
