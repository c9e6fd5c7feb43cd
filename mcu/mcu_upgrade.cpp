// Firmware upload to the MCU, upgrade control and status, and the self-test of
// the MCU's I2C links to the chips.
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "api/tavo_table.h"
#include "base/sys.h"
#include "mcu/mcu_frame.h"
#include "mcu/mcu_lock.h"
#include "tavo/tavo_export.h"
#include "upgrade/tavo_comm.h"

namespace {

using tavo::mcu::kControlLast;
using tavo::mcu::kControlMore;
using tavo::mcu::kDataMax;

constexpr std::size_t kUploadPathLimit = 257;
constexpr uint32_t kProgressStep = 1500;
constexpr uint64_t kPauseEveryFrames = 50;
constexpr useconds_t kUploadPauseUs = 1;
constexpr const char *kUpload = "tavo_mcu_upgrade_transfile";
constexpr const char *kCheck = "tavo_mcu_check_i2c";

constexpr uint8_t kPeripheralStart = 1;
constexpr uint8_t kPeripheralStop = 0;
constexpr uint8_t kPeripheralKind = 2;
constexpr unsigned kStuckLinkPauseSeconds = 10;
constexpr unsigned kPeripheralTestSeconds = 3;
constexpr std::size_t kLinkReportSize = 512;
constexpr std::array<std::string_view, 4> kLinkNames{"MINI0", "MINI1", "MINI2", "MINI3"};
constexpr uint32_t kChipSlotA = 1;

void report_illegal_path() {
    std::printf("\t%-30s : Upgrade file path is illegal.\n", "Message");
}

int percent(uint64_t position, uint64_t length) {
    return static_cast<int>(position * 100 / length);
}

struct Upload {
    uint32_t card_id;
    uint32_t length;
    int fd;
};

// Sends the image in frames of 20 bytes; the last frame carries control 0x80.
// `position` ends at the number of bytes sent.
int send_image(const Upload &upload, uint32_t &position) {
    uint64_t frames = (uint64_t{upload.length} + kDataMax - 1) / kDataMax;
    for (uint64_t i = 0; i < frames; ++i) {
        bool last = !(uint64_t{position} + kDataMax < upload.length);
        uint32_t size = last ? upload.length - position : static_cast<uint32_t>(kDataMax);
        std::array<uint8_t, kDataMax> data{};
        ssize_t got =
            tavo::base::read_full(upload.fd, std::as_writable_bytes(std::span(data).first(size)));
        if (got <= 0 || static_cast<uint64_t>(got) < size) {
            API_LOG_ERR_FOR(kUpload, "count(%d) err. len_curr(%d).\n\r\n", static_cast<int>(got),
                            static_cast<int>(size));
            return -1;
        }
        int ret = tavo_mcu_set_info(upload.card_id, last ? kControlLast : kControlMore,
                                    TAVO_MCU_CMD_UPGRADE_DATA, position, size, data.data());
        if (ret != 0) {
            API_LOG_ERR_FOR(kUpload, "call tavo_mcu_set_info fail.ret(%d)\n\r\n", ret);
            return -1;
        }
        position += size;
        if (position % kProgressStep == 0) {
            std::printf("\rfile_len(%d)--offset(%d) [%d].", static_cast<int>(upload.length),
                        static_cast<int>(position), percent(position, upload.length));
            std::fflush(stdout);
        }
        if (i % kPauseEveryFrames == 0) {
            usleep(kUploadPauseUs);
        }
    }
    return 0;
}

void stop_peripheral_test(uint32_t card_id) {
    const uint8_t stop[] = {kPeripheralStop, kPeripheralKind};
    int ret = tavo_mcu_set_info_simple(card_id, TAVO_MCU_CMD_PERIPHERAL_TEST, sizeof stop, stop);
    if (ret != 0) {
        API_LOG_ERR_FOR(kCheck,
                        "call tavo_mcu_set_info_simple stop peripheral test failed.%d.\n\r\n", ret);
    }
}

// Flags 0 and 1: the link through the chip in slot 1 / slot 3 failed. When the
// switch did not move the link, the slot it could not reach failed.
void judge_switch(uint32_t before, uint32_t after, uint32_t *result) {
    if (after != before) {
        result[TAVO_MCU_CHECK_SLOT1_FAILED] = 0;
        result[TAVO_MCU_CHECK_SLOT3_FAILED] = 0;
        return;
    }
    result[TAVO_MCU_CHECK_SLOT1_FAILED] = before != kChipSlotA ? 1 : 0;
    result[TAVO_MCU_CHECK_SLOT3_FAILED] = before != kChipSlotA ? 0 : 1;
    sleep(kStuckLinkPauseSeconds);
}

}  // namespace

extern "C" {

TAVO_API int tavo_mcu_upgrade_transfile(uint32_t card_id, const char *path) {
    std::array<char, PATH_MAX + 1> resolved{};
    if (path == nullptr || strnlen(path, kUploadPathLimit) >= kUploadPathLimit ||
        realpath(path, resolved.data()) == nullptr) {
        report_illegal_path();
        return -1;
    }
    uint32_t length = 0;
    int ret = TavoGetFileLength(path, &length);
    if (ret != 0 || length == 0) {
        API_LOG_ERR("call TavoGetFileLength failed. %d .\n\r\n", static_cast<int>(length));
        return -1;
    }
    tavo::base::UniqueFd file = tavo::base::sys_open(resolved.data(), O_RDONLY);
    if (!file) {
        API_LOG_ERR("open file %s failed errno(%d).\r\n", resolved.data(), errno);
        return -1;
    }
    std::printf("\nfile_len(%d)--offset(%d) [0].", static_cast<int>(length), 0);
    std::fflush(stdout);
    tavo::mcu::McuLock lock(tavo::mcu::kLockTimeoutUpload);
    if (lock.status() != 0) {
        file.reset();
        API_LOG_ERR("call tavo_mcu_set_lock failed.%d.\n\r\n", lock.status());
        return -1;
    }
    uint32_t position = 0;
    if (send_image(Upload{card_id, length, file.get()}, position) != 0) {
        return -1;
    }
    file.reset();
    lock.release();
    std::printf("\rfile_len(%d)--offset(%d) [100].\n", static_cast<int>(length),
                static_cast<int>(position));
    std::fflush(stdout);
    return 0;
}

TAVO_API int tavo_mcu_upgrade_control(uint32_t card_id, uint32_t value) {
    const uint8_t control = static_cast<uint8_t>(value);
    return tavo_mcu_set_info_simple(card_id, TAVO_MCU_CMD_UPGRADE_CONTROL, 1, &control);
}

TAVO_API int tavo_mcu_get_upgrade_statues(uint32_t card_id, uint8_t *first, uint8_t *second) {
    if (first == nullptr || second == nullptr) {
        API_LOG_ERR("input parameter is null.\n\r\n");
        return -1;
    }
    uint32_t value = 0;
    int ret = tavo_mcu_get_fix_word(card_id, 0, TAVO_MCU_CMD_UPGRADE_STATUS, 2, &value);
    if (ret != 0) {
        return ret;
    }
    *first = static_cast<uint8_t>(value & 0xFF);
    *second = static_cast<uint8_t>((value >> 8) & 0xFF);
    return 0;
}

TAVO_API int tavo_mcu_check_i2c(uint32_t card_id, uint32_t *result) {
    if (result == nullptr) {
        API_LOG_ERR("input parameter is null.\n\r\n");
        return 0;
    }
    std::printf("\tChecking... Please do not interrupt!");
    std::fflush(stdout);
    uint32_t before = 0;
    uint32_t after = 0;
    int ret = tavo_switch_mini2mcu_channel(card_id, &before, &after);
    if (ret != 0) {
        API_LOG_ERR("call tavo_switch_mini2mcu_channel failed.%d.\n\r\n", ret);
        return 0;
    }
    judge_switch(before, after, result);

    const uint8_t start[] = {kPeripheralStart, kPeripheralKind};
    ret = tavo_mcu_set_info_simple(card_id, TAVO_MCU_CMD_PERIPHERAL_TEST, sizeof start, start);
    if (ret != 0) {
        API_LOG_ERR("call tavo_mcu_set_info_simple start peripheral test failed.%d.\n\r\n", ret);
        return 0;
    }
    sleep(kPeripheralTestSeconds);
    // Room beyond the longest report keeps the text terminated.
    std::array<uint8_t, kLinkReportSize> report{};
    uint32_t report_length = 0;
    ret = tavo_mcu_get_iic_to_miniD_status(card_id, report.data(), &report_length);
    if (ret != 0) {
        stop_peripheral_test(card_id);
        API_LOG_ERR("call tavo_mcu_get_peripheral_test_result failed.%d.\n\r\n", ret);
        return 0;
    }
    std::string_view text(reinterpret_cast<const char *>(report.data()));
    for (std::size_t k = 0; k < kLinkNames.size(); ++k) {
        result[TAVO_MCU_CHECK_MINI0 + k] = text.find(kLinkNames[k]) != std::string_view::npos;
    }
    stop_peripheral_test(card_id);
    return 0;
}

}  // extern "C"
