// The kite media SoC: fixed answers, memory from /proc/meminfo, the die-id register
// through /dev/mem, the electronic label, and the board identity and alarms (from the
// camera board's files or from the card's MCU).
#include <fcntl.h>
#include <sys/mman.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "api/tavo_table.h"
#include "base/bounded.h"
#include "base/sys.h"
#include "base/unique_file.h"
#include "board_kite/kite_log.h"
#include "tavo/driver_elable.h"
#include "tavo/tavo_export.h"
#include "tavo/tavo_kite.h"
#include "tavo/tavo_mcu.h"
#include "tavo/tavo_query.h"

namespace {

using tavo::base::UniqueFd;
using tavo::base::UniqueFile;

constexpr uint32_t kKiteHealth = 0;
constexpr uint32_t kKiteFrequency = 1600;
constexpr const char *kDevMem = "/dev/mem";
constexpr const char *kMeminfo = "/proc/meminfo";
constexpr uintptr_t kPageMask = 0xFFF;
constexpr std::size_t kPageSize = 4096;
constexpr std::size_t kPeekSpan = 16;  // the scan covers address .. address + 16
constexpr std::size_t kMeminfoLineMax = 128;

// Unmaps on every path; a failed unmap is reported but does not fail the read.
class PeekMapping {
  public:
    PeekMapping(void *address, std::size_t length) : address_(address), length_(length) {}
    PeekMapping(const PeekMapping &) = delete;
    PeekMapping &operator=(const PeekMapping &) = delete;
    ~PeekMapping() {
        if (::munmap(address_, length_) != 0) {
            KITE_LOG_ERR("memunmap(): munmap failed!\n\r\n");
        }
    }
    const volatile uint8_t *bytes() const {
        return static_cast<const volatile uint8_t *>(address_);
    }

  private:
    void *address_;
    std::size_t length_;
};

// The first four non-zero bytes of `bytes`, the first one lowest.
uint32_t first_nonzero_word(const volatile uint8_t *bytes, std::size_t count) {
    std::array<uint8_t, 4> collected{};
    std::size_t filled = 0;
    for (std::size_t i = 0; i < count; ++i) {
        uint8_t b = bytes[i];
        if (b != 0 && filled < collected.size()) {
            collected[filled++] = b;
        }
    }
    return uint32_t{collected[3]} << 24 | uint32_t{collected[2]} << 16 |
           uint32_t{collected[1]} << 8 | collected[0];
}

// MemTotal in kB, rounded up to whole GiB and given in MiB.
uint64_t whole_gib_in_mib(unsigned long kilobytes) {
    double kb = static_cast<double>(static_cast<int32_t>(kilobytes));
    return static_cast<uint64_t>(std::ceil(kb / 1024.0 / 1024.0) * 1024);
}

}  // namespace

extern "C" {

TAVO_API int tavo_kite_get_health(uint32_t /*card_id*/, uint32_t *health) {
    if (health == nullptr) {
        return -1;
    }
    *health = kKiteHealth;
    return 0;
}

TAVO_API int tavo_kite_get_device_frequency(uint32_t /*card_id*/, uint32_t /*kind*/,
                                            uint32_t *frequency) {
    if (frequency == nullptr) {
        return -1;
    }
    *frequency = kKiteFrequency;
    return 0;
}

TAVO_API int tavo_kite_get_chip_info(uint32_t /*card_id*/, rumo_chip_info *info) {
    if (info == nullptr) {
        return -1;
    }
    int ret = memcpy_s(info->chip_type, sizeof info->chip_type, "media", 5);
    if (ret != 0) {
        KITE_LOG_ERR("call memcpy_s failed.%d\r\n", ret);
    }
    ret = memcpy_s(info->chip_name, sizeof info->chip_name, "kite", 4);
    if (ret != 0) {
        KITE_LOG_ERR("call memcpy_s failed.%d\r\n", ret);
    }
    ret = memcpy_s(info->chip_ver, sizeof info->chip_ver, "V100", 4);
    if (ret != 0) {
        KITE_LOG_ERR("call memcpy_s failed.%d.\n\r\n", ret);
    }
    return 0;
}

TAVO_API int tavo_kite_get_board_info(uint32_t card_id, rumo_board_info *info) {
    if (g_tavoBoardType == TAVO_BOARD_FENNEC) {
        return tavo_fennec_kite_get_board_info(info);
    }
    return tavo_mcu_get_board_info(card_id, info);
}

TAVO_API int tavo_kite_get_device_errorcode(uint32_t card_id, uint32_t *count, void *codes,
                                            uint32_t *width) {
    if (g_tavoBoardType == TAVO_BOARD_FENNEC) {
        return tavo_fennec_kite_get_device_errorcode(count, static_cast<uint32_t *>(codes), width);
    }
    return tavo_mcu_get_device_errorcode(card_id, count, codes, width);
}

TAVO_API int tavo_kite_get_memory_info(uint32_t /*card_id*/, rumo_memory_info *info) {
    if (info == nullptr) {
        return -1;
    }
    UniqueFile file{std::fopen(kMeminfo, "r")};
    if (!file) {
        KITE_LOG_ERR("call open failed.\n\r\n");
        return -1;
    }
    unsigned long kilobytes = 0;
    std::array<char, kMeminfoLineMax> line{};
    while (std::fgets(line.data(), static_cast<int>(line.size()), file.get()) != nullptr) {
        if (std::strncmp(line.data(), "MemTotal", 8) != 0) {
            continue;
        }
        int fields = sscanf_s(line.data(), "MemTotal: %lu kB\n", &kilobytes);
        if (fields < 1) {
            KITE_LOG_ERR("call sscanf_s failed.%d.\n\r\n", fields);
            return -1;
        }
    }
    info->memory_size = whole_gib_in_mib(kilobytes);
    return 0;
}

TAVO_API int tavo_kite_regpeek(uint32_t address, uint32_t *value) {
    if (value == nullptr) {
        return -1;
    }
    UniqueFd fd = tavo::base::sys_open(kDevMem, O_RDWR | O_SYNC);
    if (!fd) {
        KITE_LOG_ERR("memmap():open %s error!\n\r\n", kDevMem);
        return -1;
    }
    uintptr_t base = address & ~kPageMask;
    uintptr_t offset = address - base;
    std::size_t length = ((kPeekSpan + offset - 1) & ~kPageMask) + kPageSize;
    void *mapped = ::mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED, fd.get(),
                          static_cast<off_t>(base));
    if (mapped == MAP_FAILED) {
        KITE_LOG_ERR("memmap():mmap @ 0x%x error!\n\r\n", static_cast<unsigned>(base));
        return -1;
    }
    fd.reset();
    PeekMapping mapping(mapped, length);
    *value = first_nonzero_word(mapping.bytes() + offset, kPeekSpan + 1);
    return 0;
}

TAVO_API int tavo_kite_get_device_die(uint32_t /*card_id*/, rumo_die_id *die) {
    if (die == nullptr) {
        return -1;
    }
    int ret = tavo_kite_regpeek(TAVO_KITE_DIE_ID_ADDRESS, &die->soc_die[0]);
    if (ret != 0) {
        KITE_LOG_ERR("call tavo_kite_regpeek failed.%d.\n\r\n", ret);
    }
    return ret;
}

TAVO_API int tavo_kite_get_elable(uint32_t /*card_id*/, uint32_t item, uint8_t *buffer,
                                  uint16_t *length) {
    int ret = DriverElabelGetData(static_cast<uint8_t>(item & 0xFF), &buffer, length);
    if (ret != 0) {
        KITE_LOG_ERR("call DriverElabelGetData failed.%d.\n\r\n", ret);
    }
    return ret;
}

// Queries that have no meaning on this SoC.
TAVO_API int tavo_kite_reset_device(uint32_t) {
    return TAVO_NOT_SUPPORTED;
}
TAVO_API int tavo_kite_config_p2p_enable(uint32_t, uint32_t) {
    return TAVO_NOT_SUPPORTED;
}
TAVO_API int tavo_kite_get_p2p_enable(uint32_t, uint32_t *) {
    return TAVO_NOT_SUPPORTED;
}
TAVO_API int tavo_kite_get_board_id(uint32_t, uint32_t *) {
    return TAVO_NOT_SUPPORTED;
}
TAVO_API int tavo_kite_get_pcb_id(uint32_t, uint32_t *) {
    return TAVO_NOT_SUPPORTED;
}
TAVO_API int tavo_kite_get_temperature(uint32_t, int32_t *) {
    return TAVO_NOT_SUPPORTED;
}
TAVO_API int tavo_kite_get_voltage(uint32_t, uint32_t *) {
    return TAVO_NOT_SUPPORTED;
}
TAVO_API int tavo_kite_get_power_info(uint32_t, uint32_t *) {
    return TAVO_NOT_SUPPORTED;
}
TAVO_API int tavo_kite_get_device_errorinfo(uint32_t, uint32_t, unsigned char *, uint32_t) {
    return TAVO_NOT_SUPPORTED;
}
TAVO_API int tavo_kite_get_device_utilization_rate(uint32_t, uint32_t, uint32_t *) {
    return TAVO_NOT_SUPPORTED;
}
TAVO_API int tavo_kite_config_ecc_enable(uint32_t, uint32_t) {
    return TAVO_NOT_SUPPORTED;
}
TAVO_API int tavo_kite_get_ecc_info(uint32_t, uint32_t, rumo_ecc_info *) {
    return TAVO_NOT_SUPPORTED;
}
TAVO_API int tavo_kite_get_device_flash_count(uint32_t, uint32_t *) {
    return TAVO_NOT_SUPPORTED;
}
TAVO_API int tavo_kite_get_device_flash_info(uint32_t, uint32_t, rumo_flash_info *) {
    return TAVO_NOT_SUPPORTED;
}
TAVO_API int tavo_kite_get_version(uint32_t, char *, uint32_t *) {
    return TAVO_NOT_SUPPORTED;
}

}  // extern "C"
