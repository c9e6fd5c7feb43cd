// PCIe address texts: bus numbers from "DDDD:BB:dd.f" and card lookups by address.
#include "tavo/tavo_pcie.h"

#include <cstdio>
#include <cstring>

#include "api/tavo_table.h"
#include "base/bounded.h"
#include "tavo/tavo_export.h"

namespace {

constexpr std::size_t kShortestAddress = 12;
constexpr std::size_t kBusAt = 5;
constexpr std::size_t kDeviceAt = 8;
// Devices on one root port share a switch number in groups of four.
constexpr unsigned kDevicesPerPort = 2;
constexpr uint32_t kBusesStride = 16;

bool long_enough(const char *text) {
    return text != nullptr && std::strlen(text) >= kShortestAddress;
}

// Characters `at` and `at + 1` of `text` as a terminated pair.
void two_characters(const char *text, std::size_t at, char (&pair)[3]) {
    pair[0] = text[at];
    pair[1] = text[at + 1];
    pair[2] = '\0';
}

int32_t card_count() {
    return g_tavoBoardInfo.card_count < TAVO_MAX_CARDS ? g_tavoBoardInfo.card_count
                                                       : TAVO_MAX_CARDS;
}

}  // namespace

extern "C" {

TAVO_API int tavo_trans_pcie_bus_id(const char *text, uint32_t *out) {
    if (!long_enough(text) || out == nullptr) {
        return -1;
    }
    char bus[3];
    two_characters(text, kBusAt, bus);
    *out = 0;
    int scanned = sscanf_s(bus, "%x", out);
    if (scanned != 1) {
        API_LOG_ERR("call sscanf_s failed.%d.\n\r\n", scanned);
    }
    return 0;
}

TAVO_API int tavo_trans_pcie_bus_id_without_switch(const char *text, uint32_t *out) {
    if (!long_enough(text) || out == nullptr) {
        return -1;
    }
    char pair[3];
    unsigned bus = 0;
    unsigned device = 0;
    two_characters(text, kBusAt, pair);
    int scanned = sscanf_s(pair, "%02x", &bus);
    if (scanned != 1) {
        API_LOG_ERR("busid call sscanf_s failed.%d.\n\r\n", scanned);
    }
    two_characters(text, kDeviceAt, pair);
    scanned = sscanf_s(pair, "%02x", &device);
    if (scanned != 1) {
        API_LOG_ERR("rc_id call sscanf_s failed.%d.\n\r\n", scanned);
    }
    *out = bus * kBusesStride + (device >> kDevicesPerPort);
    return 0;
}

TAVO_API int tavo_get_same_split_num_from_str(const char *text, const char *separator,
                                              uint32_t *count) {
    if (count == nullptr) {
        return 0;
    }
    *count = 0;
    if (text == nullptr || separator == nullptr || *separator == '\0') {
        return 0;
    }
    const std::size_t step = std::strlen(separator);
    for (const char *hit = std::strstr(text, separator); hit != nullptr;
         hit = std::strstr(hit + step, separator)) {
        ++*count;
    }
    return 0;
}

TAVO_API int tavo_find_card_id_with_pcie(int32_t *index, const char *pcie) {
    if (index == nullptr) {
        return 0;
    }
    *index = -1;
    for (int32_t i = 0; pcie != nullptr && i < card_count(); ++i) {
        if (std::strcmp(g_tavoBoardInfo.cards[i].pcie_bus, pcie) == 0) {
            *index = i;
            return 0;
        }
    }
    return 0;
}

TAVO_API int tavo_find_card_id_with_bus_id(int32_t *index, uint32_t card_id) {
    if (index == nullptr) {
        return 0;
    }
    *index = -1;
    for (int32_t i = 0; i < card_count(); ++i) {
        if (g_tavoBoardInfo.cards[i].card_id == card_id) {
            *index = i;
            return 0;
        }
    }
    return 0;
}

}  // extern "C"
