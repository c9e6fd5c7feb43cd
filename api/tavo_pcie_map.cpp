// The PCIe slot map and the PCI device tree: which physical slot each card sits in,
// and how many functions below a card the device-management library does not report.
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "api/tavo_table.h"
#include "base/bounded.h"
#include "base/unique_file.h"
#include "tavo/tavo_export.h"
#include "tavo/tavo_pcie.h"

extern "C" {
tavo_pcie_map g_pcie_map_info{};
}

int remove_temp_file(const char *path);

namespace {

using tavo::base::formatted_whole;
using tavo::base::UniqueFile;

constexpr const char *kDevMem = "/dev/mem";
constexpr const char *kIdKey = "ID: ";
constexpr const char *kBusAddressKey = "Bus Address: ";
constexpr uint32_t kBoardIdMatchEveryDevice = 200;
constexpr std::size_t kCommandMax = 512;
constexpr int kTempNameModulo = 10000;
// A tree line holds at most 511 characters, so at most 256 "/"-separated parts.
constexpr std::size_t kMaxPathParts = TAVO_PCIE_LINE_LEN / 2;

constexpr const char *kTreeCommand =
    "find /sys/devices/ -name \"[0-f][0-f][0-f][0-f]:[0-f][0-f]:[0-f][0-f].[0-f]\" | grep "
    "\"[0-f][0-f][0-f][0-f]:[0-f][0-f]:[0-f][0-f].[0-f]/[0-f][0-f][0-f][0-f]:[0-f][0-f]:[0-f][0-f]."
    "[0-f]\" | awk -F \"pci[0-f][0-f][0-f][0-f]:\" '{print $2}' | cut -d \"/\" -f 2-$NF";
constexpr const char *kVmTreeCommand =
    "find /sys/devices/ -name \"[0-f][0-f][0-f][0-f]:[0-f][0-f]:[0-f][0-f].[0-f]\" |grep "
    "\"pci[0-f][0-f][0-f][0-f]:\"";

int temp_number() {
    timeval now{};
    ::gettimeofday(&now, nullptr);
    return static_cast<int>(now.tv_usec % kTempNameModulo);
}

bool exists(const char *path) {
    return ::access(path, F_OK) == 0;
}

// A card or device whose PCIe text is not known yet matches no slot record.
const char *find_text(const char *entry, const char *text) {
    return text[0] == '\0' ? nullptr : std::strstr(entry, text);
}

void add_map_entry(uint32_t slot_id, const char *bus_address) {
    if (g_pcie_map_info.count >= TAVO_PCIE_MAP_ENTRIES) {
        return;  // the map is full; lookups take the first match anyway
    }
    tavo_pcie_map_entry &entry = g_pcie_map_info.entries[g_pcie_map_info.count];
    constexpr std::size_t kLimit = sizeof entry.bus_address - 1;
    int ret = snprintf_s(entry.bus_address, sizeof entry.bus_address, kLimit, "%s\n", bus_address);
    if (!formatted_whole(ret, kLimit)) {
        API_LOG_ERR("call snprintf_s failed.%d\n\r\n", ret);
        entry = tavo_pcie_map_entry{};
        return;
    }
    entry.slot_id = slot_id;
    g_pcie_map_info.count += 1;
}

// Two states: an "ID: " line names the slot, the next usable "Bus Address: " line
// gives its address.
void scan_slot_records(std::FILE *file) {
    std::array<char, TAVO_PCIE_LINE_LEN> line{};
    bool seek_id = true;
    uint32_t slot_id = 0;
    while (std::fgets(line.data(), static_cast<int>(line.size()), file) != nullptr) {
        line[std::strcspn(line.data(), "\n")] = '\0';
        if (seek_id) {
            if (const char *id = std::strstr(line.data(), kIdKey)) {
                slot_id = static_cast<uint32_t>(std::atoi(id + std::strlen(kIdKey)));
                seek_id = false;
            }
            continue;
        }
        const char *address = std::strstr(line.data(), kBusAddressKey);
        std::size_t remaining = address == nullptr ? 0 : std::strlen(address);
        if (remaining >= 1 && remaining <= TAVO_PCIE_LINE_LEN - 1) {
            add_map_entry(slot_id, address);
            seek_id = true;
        }
    }
}

// The path parts of one tree line, each a block of its own.
struct PathParts {
    std::vector<std::unique_ptr<char[]>> blocks;
};

bool split_path(const char *line, PathParts &parts) {
    const char *start = line;
    while (parts.blocks.size() < kMaxPathParts) {
        const char *slash = std::strchr(start, '/');
        std::size_t length =
            slash == nullptr ? std::strlen(start) : static_cast<std::size_t>(slash - start);
        std::unique_ptr<char[]> block(new (std::nothrow) char[TAVO_PCIE_LINE_LEN]());
        if (!block) {
            return false;
        }
        (void)memcpy_s(block.get(), TAVO_PCIE_LINE_LEN, start,
                       std::min<std::size_t>(length, TAVO_PCIE_LINE_LEN - 1));
        parts.blocks.push_back(std::move(block));
        if (slash == nullptr) {
            break;
        }
        start = slash + 1;
    }
    return true;
}

// The zero byte goes one position past the text's end; the byte right after the
// text is left as the caller set it (zero, in a zeroed buffer). A part of 511
// characters has no room for it: the caller's zero after it terminates the text.
void copy_part(const PathParts &parts, uint32_t levels_up, char *out) {
    if (parts.blocks.size() <= levels_up) {
        return;
    }
    const char *part = parts.blocks[parts.blocks.size() - levels_up - 1].get();
    std::size_t length = std::strlen(part);
    (void)memcpy_s(out, TAVO_PCIE_LINE_LEN, part, length);
    if (length + 1 < TAVO_PCIE_LINE_LEN) {
        out[length + 1] = '\0';
    }
}

}  // namespace

int remove_temp_file(const char *path) {
    if (path == nullptr || std::remove(path) != 0) {
        API_LOG_ERR("call remove file %s failed.\n\r\n", path != nullptr ? path : "(null)");
    }
    return 0;
}

extern "C" {

TAVO_API int tavo_get_pcie_slot_info(void) {
    if (tavo_is_card() == 0) {
        return 0;
    }
    if (!exists(kDevMem)) {
        return 1;
    }
    char file_name[64];
    char command[kCommandMax];
    int number = temp_number();
    int ret = snprintf_s(file_name, sizeof file_name, sizeof file_name - 1, "/tmp/dmidecode_%d.tmp",
                         number);
    bool whole = formatted_whole(ret, sizeof file_name - 1);
    if (whole) {
        ret = snprintf_s(command, sizeof command, sizeof command - 1,
                         "dmidecode -t9 > /tmp/dmidecode_%d.tmp 2>&1", number);
        whole = formatted_whole(ret, sizeof command - 1);
    }
    if (!whole) {
        API_LOG_ERR("call snprintf_s failed.%d\n\r\n", ret);
        return -1;
    }
    if (std::system(command) != 0) {
        (void)remove_temp_file(file_name);
        return -1;
    }
    {
        UniqueFile file{std::fopen(file_name, "r")};
        if (!file) {
            API_LOG_ERR("call open failed.\n\r\n");
            return -1;
        }
        scan_slot_records(file.get());
    }
    return remove_temp_file(file_name);
}

TAVO_API const char *tavo_pcie_slot_map_cmp(const char *entry, const tavo_card_record *card) {
    if (entry == nullptr || card == nullptr) {
        return nullptr;
    }
    if (g_tavoBoardInfo.board_id != kBoardIdMatchEveryDevice) {
        return find_text(entry, card->pcie_bus);
    }
    for (int32_t d = 0; d < card->device_count && d < TAVO_MAX_DEVICES_PER_CARD; ++d) {
        if (const char *hit = find_text(entry, card->devices[d].pcie_path)) {
            return hit;
        }
    }
    return nullptr;
}

TAVO_API int tavo_pcie_slot_map_init(void) {
    if (tavo_is_card() == 0) {
        return 0;
    }
    (void)tavo_get_pcie_slot_info();
    for (int32_t c = 0; c < g_tavoBoardInfo.card_count && c < TAVO_MAX_CARDS; ++c) {
        tavo_card_record &card = g_tavoBoardInfo.cards[c];
        card.pcie_slot = TAVO_ABSENT;
        for (uint32_t e = 0; e < g_pcie_map_info.count && e < TAVO_PCIE_MAP_ENTRIES; ++e) {
            if (tavo_pcie_slot_map_cmp(g_pcie_map_info.entries[e].bus_address, &card) != nullptr) {
                card.pcie_slot = g_pcie_map_info.entries[e].slot_id;
                break;
            }
        }
    }
    return -1;
}

TAVO_API int tavo_save_pcie_info(const char *file) {
    const char *tree = g_tavoBoardInfo.in_virtual_machine != 0 ? kVmTreeCommand : kTreeCommand;
    char command[kCommandMax];
    int ret = snprintf_s(command, sizeof command, sizeof command - 1, "%s > %s", tree,
                         file != nullptr ? file : "");
    if (file == nullptr || !formatted_whole(ret, sizeof command - 1)) {
        API_LOG_ERR("call snprintf_s failed.%d\n\r\n", ret);
        return -1;
    }
    if (std::system(command) != 0) {
        API_LOG_ERR("call get pcie info failed.\n\r\n");
        return -1;
    }
    return 0;
}

TAVO_API int tavo_get_pcie_before_info(const char *file, const char *text, char *out1, char *out2,
                                       uint32_t up1, uint32_t up2) {
    if (file == nullptr || text == nullptr || out1 == nullptr || out2 == nullptr) {
        return -1;
    }
    UniqueFile tree{std::fopen(file, "r")};
    if (!tree) {
        API_LOG_ERR("call open failed %s.\n\r\n", file);
        return -1;
    }
    std::array<char, TAVO_PCIE_LINE_LEN> line{};
    bool found = false;
    while (!found &&
           std::fgets(line.data(), static_cast<int>(line.size()), tree.get()) != nullptr) {
        found = std::strstr(line.data(), text) != nullptr;
    }
    if (!found) {
        return -1;
    }
    line[std::strcspn(line.data(), "\n")] = '\0';
    PathParts parts;
    if (!split_path(line.data(), parts)) {
        API_LOG_ERR("Failed to alloc usages info memory.\n\r\n");
        return -8098;
    }
    if (tavo_check_run_in_vm() != 0) {
        up1 = 0;
        up2 = 0;
    }
    copy_part(parts, up1, out1);
    copy_part(parts, up2, out2);
    return 0;
}

TAVO_API int tavo_find_board_pcie_num(const char *file, const char *text, uint32_t *count) {
    UniqueFile tree{file != nullptr ? std::fopen(file, "r") : nullptr};
    if (!tree || text == nullptr || count == nullptr) {
        API_LOG_ERR("call open failed.\n\r\n");
        return -1;
    }
    uint32_t found = 0;
    std::array<char, TAVO_PCIE_LINE_LEN> line{};
    while (std::fgets(line.data(), static_cast<int>(line.size()), tree.get()) != nullptr) {
        const char *match = std::strstr(line.data(), text);
        uint32_t separators = 0;
        if (match != nullptr && tavo_get_same_split_num_from_str(match, "/", &separators) == 0 &&
            separators == 2) {
            found += 1;
        }
    }
    *count = found;
    return 0;
}

TAVO_API int tavo_flush_pcie_device(const char *file) {
    if (tavo_is_card() == 0) {
        return 0;
    }
    for (int32_t c = 0; c < g_tavoBoardInfo.card_count && c < TAVO_MAX_CARDS; ++c) {
        tavo_card_record &card = g_tavoBoardInfo.cards[c];
        uint32_t functions = 0;
        bool known = tavo_find_board_pcie_num(file, card.pcie_bus, &functions) == 0;
        card.fault_device_count = known && static_cast<int64_t>(card.device_count) < functions
                                      ? functions - static_cast<uint32_t>(card.device_count)
                                      : 0;
    }
    return 0;
}

}  // extern "C"
