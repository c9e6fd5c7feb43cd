// The MCU's logs, indexed by log type.
#pragma once

#include <array>
#include <cstdint>

#include "tavo/tavo_mcu.h"

struct tavo_mcu_log_info {
    uint32_t type;
    uint32_t command;     // the MCU command that reads the log
    uint32_t size_limit;  // bytes; informative, not consulted by the collection
    char name[256];       // part of the file names and messages
};

extern const std::array<tavo_mcu_log_info, TAVO_MCU_LOG_TYPE_COUNT> g_tavo_mcu_log_info;
