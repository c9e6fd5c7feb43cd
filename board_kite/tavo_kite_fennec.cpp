// The fennec camera board's own files: its identity in /run/board_cfg.ini and its
// active alarms in /run/all_active_alarm.
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "base/bounded.h"
#include "base/unique_file.h"
#include "board_kite/kite_log.h"
#include "tavo/tavo_export.h"
#include "tavo/tavo_kite.h"

namespace {

using tavo::base::UniqueFile;

constexpr const char *kBoardConfig = "/run/board_cfg.ini";
constexpr const char *kAlarmFile = "/run/all_active_alarm";
constexpr std::size_t kConfigLineMax = 256;
constexpr int kAlarmLineMax = 1023;
constexpr int32_t kAlarmFieldLen = 4;  // every alarm line ends with a 4-character field
constexpr int32_t kSummarySections = 3;
constexpr int32_t kAlarmSections = 6;
constexpr uint32_t kCodeWidth = 4;
constexpr uint32_t kCodeBufferBytes = 256;

struct BoardKey {
    const char *key;
    uint32_t rumo_board_info::*field;
    unsigned flag;
};

constexpr std::array<BoardKey, 3> kBoardKeys{{
    {"board_id=", &rumo_board_info::board_id, 1},
    {"pcb_id=", &rumo_board_info::pcb_id, 2},
    {"bom_id=", &rumo_board_info::bom_id, 4},
}};
constexpr unsigned kAllBoardKeys = 7;

// Copies line[from, to) into a section, terminated.
bool copy_section(char *section, const char *line, int32_t from, int32_t to) {
    return strncpy_s(section, TAVO_ALARM_SECTION_LEN, line + from,
                     static_cast<std::size_t>(to - from)) == 0;
}

// The next '@' after position `after` (-1 or the position of an '@'), searched up
// to the terminator whatever length the caller gave, or nullptr.
const char *next_at(const char *line, int32_t after) {
    return std::strchr(line + after + 1, '@');
}

struct AlarmScan {
    uint32_t reported = 0;  // from the summary line
    uint32_t codes = 0;
};

// Accepts one alarm-file line; -1 ends the reading.
int accept_alarm_line(const char *line, int32_t length, AlarmScan &scan, uint32_t *codes) {
    char sections[TAVO_ALARM_SECTION_MAX][TAVO_ALARM_SECTION_LEN] = {};
    int32_t count = 0;
    if (tavo_get_alarm_info(line, length, sections, TAVO_ALARM_SECTION_MAX, &count) != 0) {
        return -1;
    }
    if (count == kSummarySections) {
        scan.reported = static_cast<uint32_t>(std::strtol(sections[1], nullptr, 10));
    } else if (count == kAlarmSections) {
        codes[scan.codes++] = static_cast<uint32_t>(std::strtol(sections[0], nullptr, 10));
    } else {
        KITE_LOG_ERR("alarm_line(%s) format invalid!\n\r\n", line);
        return -1;
    }
    return 0;
}

}  // namespace

extern "C" {

TAVO_API int tavo_get_hex_single_board_info(const char *line, const char *key, uint32_t *value) {
    if (line == nullptr || key == nullptr || value == nullptr) {
        return -1;
    }
    std::size_t key_length = std::strlen(key);
    if (std::strncmp(line, key, key_length) != 0) {
        return -1;
    }
    *value = static_cast<uint32_t>(std::strtoul(line + key_length, nullptr, 16));
    return 0;
}

TAVO_API int tavo_fennec_kite_get_board_info(rumo_board_info *info) {
    if (info == nullptr) {
        return -1;
    }
    UniqueFile file{std::fopen(kBoardConfig, "r")};
    if (!file) {
        KITE_LOG_ERR("open config file(%s) failed.\n\r\n", kBoardConfig);
        return -1;
    }
    unsigned flags = 0;
    std::array<char, kConfigLineMax> line{};
    while (std::fgets(line.data(), static_cast<int>(line.size()), file.get()) != nullptr) {
        for (const BoardKey &k : kBoardKeys) {
            if (tavo_get_hex_single_board_info(line.data(), k.key, &(info->*k.field)) == 0) {
                flags |= k.flag;
                break;
            }
        }
        if (memset_s(line.data(), line.size(), 0, line.size()) != 0) {
            KITE_LOG_ERR("memset_s info_line failed.\n\r\n");
            break;
        }
    }
    if (flags != kAllBoardKeys) {
        KITE_LOG_ERR("read board info failed!read_flag=(%d).\n\r\n", static_cast<int>(flags));
        return -1;
    }
    return 0;
}

TAVO_API int tavo_get_alarm_info(const char *line, int32_t length,
                                 char (*sections)[TAVO_ALARM_SECTION_LEN], int32_t maximum,
                                 int32_t *count) {
    if (line == nullptr || sections == nullptr || count == nullptr || length < 0) {
        return -1;
    }
    int32_t last = -1;
    int32_t n = 0;
    // The search runs over the whole text: an '@' at or past length - 1 ends it only
    // once the sections are full. Fields beyond the section array are not copied;
    // such a line fails the final-field check below.
    for (const char *at = next_at(line, last); at != nullptr; at = next_at(line, last)) {
        auto position = static_cast<int32_t>(at - line);
        if (position >= length - 1 && n >= maximum) {
            break;
        }
        if (n < maximum && !copy_section(sections[n], line, last + 1, position)) {
            break;
        }
        n += 1;
        last = position;
    }
    if (last == length - (kAlarmFieldLen + 1) && n < maximum) {
        if (copy_section(sections[n], line, last + 1, last + 1 + kAlarmFieldLen)) {
            *count = n + 1;
            return 0;
        }
    }
    KITE_LOG_ERR("last_pos(%d, %d) section_count(%d, %d)!\n\r\n", last, length, n, maximum);
    KITE_LOG_ERR("alarm_line(%s) format invalid!\n\r\n", line);
    return -1;
}

TAVO_API int tavo_fennec_kite_get_device_errorcode(uint32_t *count, uint32_t *codes,
                                                   uint32_t *width) {
    if (count == nullptr || codes == nullptr || width == nullptr) {
        return -1;
    }
    *width = kCodeWidth;
    if (::access(kAlarmFile, F_OK) != 0) {
        KITE_LOG_INFO("can't open alarm file, maybe not exist.\n\r\n");
        *count = 0;
        return 0;
    }
    UniqueFile file{std::fopen(kAlarmFile, "r")};
    if (!file) {
        KITE_LOG_ERR("open alarm file failed!\n\r\n");
        return -1;
    }
    AlarmScan scan;
    const uint32_t limit = kCodeBufferBytes / *width;
    std::array<char, kAlarmLineMax + 1> line{};
    int result = 0;
    while (std::fgets(line.data(), kAlarmLineMax, file.get()) != nullptr) {
        auto n = static_cast<int32_t>(std::strlen(line.data())) - 1;
        if (n <= 0 || n >= kAlarmLineMax) {
            KITE_LOG_ERR("str_len failed!(%d)\n\r\n", n);
            continue;
        }
        if (line[static_cast<std::size_t>(n)] == '\n') {
            line[static_cast<std::size_t>(n)] = '\0';
        }
        if (accept_alarm_line(line.data(), n, scan, codes) != 0) {
            result = -1;
            break;
        }
        if (scan.codes >= limit) {
            KITE_LOG_ERR("alarm_count(%d) reach max length!\n\r\n", static_cast<int>(scan.codes));
            scan.reported = scan.codes;
            break;
        }
    }
    *count = scan.reported;
    return result;
}

}  // extern "C"
