#include "drivers/driver_elable.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <span>
#include <utility>

#include "api/tavo_log.h"
#include "base/bounded.h"
#include "base/sys.h"
#include "tavo/driver_i2c.h"
#include "tavo/tavo_export.h"

using namespace tavo::drivers::elabel;

namespace {

constexpr const char *kUnit = "driver_elable";

constexpr uint32_t kLockPasses = 1000;
constexpr int kLockTriesPerPass = 100;
constexpr useconds_t kLockPassPauseUs = 1000;
constexpr int kMagicReadAttempts = 5;
constexpr int kReadAndVerifyAttempts = 5;
constexpr int kWriteAttempts = 5;
constexpr int kSetInitAttempts = 3;
constexpr useconds_t kRetryPauseUs = 1;

constexpr int kNoImage = -4;
constexpr int kBadArgument = -6;
constexpr int kBusBusy = -8;
constexpr int kCopyFailed = 1;
constexpr int kOutOfMemory = -8098;

using Image = std::span<uint8_t, kImageSize>;

#define ELABEL_LOG(format, ...) \
    TAVO_LOG_TO(tavo::log::kErr, kUnit, format __VA_OPT__(, ) __VA_ARGS__)
#define ELABEL_LOG_FOR(function, format, ...) \
    TAVO_LOG_FOR(tavo::log::kErr, kUnit, function, format __VA_OPT__(, ) __VA_ARGS__)

// Entry i is the CRC of the single byte i (polynomial 0x1021, MSB first).
constexpr std::array<uint16_t, 256> make_crc_table() {
    std::array<uint16_t, 256> table{};
    for (unsigned i = 0; i < table.size(); ++i) {
        unsigned crc = i << 8;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 0x8000u) != 0 ? (crc << 1) ^ 0x1021u : crc << 1;
        }
        table[i] = static_cast<uint16_t>(crc);
    }
    return table;
}

constexpr std::array<uint16_t, 256> kCrcTable = make_crc_table();

uint16_t load_le16(std::span<const uint8_t> bytes, std::size_t at) {
    return static_cast<uint16_t>(bytes[at] | (bytes[at + 1] << 8));
}

void store_le16(std::span<uint8_t> bytes, std::size_t at, uint16_t value) {
    bytes[at] = static_cast<uint8_t>(value & 0xff);
    bytes[at + 1] = static_cast<uint8_t>(value >> 8);
}

uint16_t slot_length(Image image, const Item &item) {
    return load_le16(image, item.slot_offset + kLengthOffset);
}

uint16_t slot_crc(Image image, const Item &item) {
    return load_le16(image, item.slot_offset + kCrcOffset);
}

uint8_t *slot_data(Image image, const Item &item) {
    return image.data() + item.slot_offset + kSlotHeaderSize;
}

void store_slot_header(Image image, const Item &item, uint16_t length) {
    store_le16(image, item.slot_offset + kLengthOffset, length);
    store_le16(image, item.slot_offset + kCrcOffset, Crc16(slot_data(image, item), length));
}

void write_magic(Image image) {
    std::copy(kMagic.begin(), kMagic.end(), image.begin());
}

bool has_magic(std::span<const uint8_t, kMagicSize> bytes) {
    return std::equal(kMagic.begin(), kMagic.end(), bytes.begin());
}

Image current_image() {
    return Image(g_elabelEnv.image, kImageSize);
}

// The default text with its terminator; on a failed copy the length and CRC stay.
int put_default(Image image, const Item &item) {
    const std::size_t length = std::strlen(item.default_text);
    int status = memcpy_s(slot_data(image, item), item.max_length, item.default_text, length + 1);
    if (status == 0) {
        store_slot_header(image, item, static_cast<uint16_t>(length));
    }
    return status;
}

struct flock whole_file(short type) {
    struct flock region {};
    region.l_type = type;
    region.l_whence = SEEK_SET;
    region.l_start = 0;
    region.l_len = 0;
    return region;
}

bool try_lock(int fd) {
    struct flock region = whole_file(F_WRLCK);
    return ::fcntl(fd, F_SETLK, &region) == 0;
}

// Spins `kLockTriesPerPass` times, then pauses, for up to `passes` passes.
bool acquire(int fd, uint32_t passes) {
    for (uint32_t pass = 0; pass < passes; ++pass) {
        for (int attempt = 0; attempt < kLockTriesPerPass; ++attempt) {
            if (try_lock(fd)) {
                return true;
            }
        }
        usleep(kLockPassPauseUs);
    }
    return false;
}

// The inter-process lock for the lifetime of the object.
class HeldLock {
  public:
    static std::optional<HeldLock> take() {
        int fd = -1;
        if (ElabelSetLock(&fd, kLockPasses) != 0) {
            return std::nullopt;
        }
        return HeldLock(fd);
    }
    HeldLock(HeldLock &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    HeldLock &operator=(HeldLock &&) = delete;
    HeldLock(const HeldLock &) = delete;
    HeldLock &operator=(const HeldLock &) = delete;
    ~HeldLock() {
        if (fd_ >= 0) {
            (void)ElabelSetUnlock(fd_);
        }
    }

  private:
    explicit HeldLock(int fd) : fd_(fd) {}
    int fd_;
};

bool read_magic(std::array<uint8_t, kMagicSize> &magic) {
    for (int attempt = 0; attempt < kMagicReadAttempts; ++attempt) {
        if (DriverFlashReadElectronicLabel(magic.data(), 0, kMagicSize) == 0) {
            return true;
        }
        usleep(kRetryPauseUs);
    }
    return false;
}

// A label that keeps failing its check is replaced by defaults; the caller still
// learns that the EEPROM's label was lost.
int replace_unreadable_label(Image image) {
    DriverElabelSetDefault(image);
    ELABEL_LOG_FOR("DriverElabelInit",
                   "DriverElabelInit:fail to read and verify elabel,set elabel to default\r\n\r\n");
    if (DriverElabelUpdate() != 0) {
        ELABEL_LOG_FOR("DriverElabelInit", "DriverElabelInit: fail to write flash\r\n\r\n");
    }
    return -1;
}

// A blank or foreign EEPROM is formatted. The record says "valid" for invalid; its
// wording is kept because existing log readers match it.
int format_label(Image image) {
    g_elabelEnv.flags &= ~kElabelFlagVerified;
    DriverElabelSetDefault(image);
    ELABEL_LOG_FOR("DriverElabelInit",
                   "DriverElabelInit: magic number is valid :set elabel to default\r\n\r\n");
    if (DriverElabelUpdate() != 0) {
        ELABEL_LOG_FOR("DriverElabelInit", "DriverElabelInit: fail to write flash\r\n\r\n");
        return -1;
    }
    return 0;
}

int init_for_set() {
    int status = -1;
    for (int attempt = 1; attempt <= kSetInitAttempts; ++attempt) {
        status = DriverElabelInit();
        if (status == 0) {
            break;
        }
        ELABEL_LOG_FOR("DriverElabelSetData", "init_cnt: %d\n\r\n", attempt);
    }
    return status;
}

}  // namespace

ElabelEnv g_elabelEnv{0, nullptr};
uint8_t g_elabelDataTmp[kImageSize];

uint16_t Crc16(const uint8_t *data, uint32_t length) {
    if (data == nullptr) {
        return 0;
    }
    uint16_t crc = 0;
    for (uint32_t i = 0; i < length; ++i) {
        crc = static_cast<uint16_t>((crc << 8) ^ kCrcTable[((crc >> 8) ^ data[i]) & 0xff]);
    }
    return crc;
}

namespace tavo::drivers::elabel {

void DriverElabelItemSetDefault(Image image, std::size_t row) {
    write_magic(image);
    if (put_default(image, kItems[row]) != 0) {
        ELABEL_LOG("[driver_elabel_set_default] memcpy_s error.\n\r\n");
    }
}

void DriverElabelSetDefault(Image image) {
    write_magic(image);
    for (const Item &item : kItems) {
        int status = put_default(image, item);
        if (status != 0) {
            ELABEL_LOG("call memcpy_s failed! %d\n\r\n", status);
            return;
        }
    }
}

int DriverElabelVerify(Image image) {
    for (std::size_t row = 0; row < kItemCount; ++row) {
        const Item &item = kItems[row];
        const uint16_t length = slot_length(image, item);
        if (length > item.max_length) {
            DriverElabelItemSetDefault(image, row);
            ELABEL_LOG("item(%d) data length %d > max_len %d \r\n", static_cast<int>(row), length,
                       item.max_length);
            return -1;
        }
        if (Crc16(slot_data(image, item), length) != slot_crc(image, item)) {
            DriverElabelItemSetDefault(image, row);
            ELABEL_LOG("item(%d) crc error,set default\r\n", static_cast<int>(row));
            return -1;
        }
    }
    return 0;
}

std::optional<std::size_t> DriverElabelFindItem(uint8_t id) {
    for (std::size_t row = 0; row < kItemCount; ++row) {
        if (kItems[row].id == id) {
            return row;
        }
    }
    return std::nullopt;
}

int DriverElabelReadAndVerify(Image image) {
    for (int attempt = 0; attempt < kReadAndVerifyAttempts; ++attempt) {
        if (DriverFlashReadElectronicLabel(image.data(), 0, kImageSize) != 0) {
            continue;
        }
        if (DriverElabelVerify(image) == 0) {
            return 0;
        }
    }
    return -1;
}

}  // namespace tavo::drivers::elabel

int DriverFlashReadElectronicLabel(uint8_t *buffer, uint32_t /*offset*/, uint32_t length) {
    int status = DriverI2cGetData(kBusPath, kSlave, kEepromOffset, buffer, length);
    return status < 0 ? status : 0;
}

int DriverFlashWritElectronicLabel(uint8_t *buffer, uint32_t /*offset*/, uint32_t length) {
    int status = 0;
    for (int attempt = 0; attempt < kWriteAttempts; ++attempt) {
        status = DriverI2cSetData(kBusPath, kSlave, kEepromOffset, buffer, length);
        if (status >= 0) {
            return 0;
        }
        usleep(kRetryPauseUs);
    }
    ELABEL_LOG("call DriverI2cSetData error.%d \n\r\n", status);
    return -1;
}

int DriverFlashEraseElectronicLabel(void) {
    std::array<uint8_t, kImageSize> zeros{};
    int status = DriverI2cSetData(kBusPath, kSlave, kEepromOffset, zeros.data(), kImageSize);
    if (status < 0) {
        ELABEL_LOG("call DriverI2cSetData error.%d \n\r\n", status);
        return -1;
    }
    return 0;
}

// A null `fd` cannot receive the descriptor and is refused before the file is opened.
TAVO_API int ElabelSetLock(int *fd, uint32_t passes) {
    if (fd == nullptr) {
        return -1;
    }
    tavo::base::UniqueFd lock = tavo::base::sys_open(kLockPath, O_RDWR | O_CREAT, 0600);
    if (!lock) {
        ELABEL_LOG("elabel_get_lock:open file failed! %s.\r\n", kLockPath);
        return -1;
    }
    *fd = lock.get();
    if (!acquire(lock.get(), passes)) {
        return -1;
    }
    (void)lock.release();
    return 0;
}

TAVO_API int ElabelSetUnlock(int fd) {
    if (fd < 0) {
        ELABEL_LOG("ElabelSetUnlock:fd is 0.\r\n");
        return -1;
    }
    tavo::base::UniqueFd lock(fd);
    struct flock region = whole_file(F_UNLCK);
    (void)::fcntl(lock.get(), F_SETLK, &region);
    return 0;
}

TAVO_API int DriverElabelInit(void) {
    g_elabelEnv.flags = 0;
    g_elabelEnv.image = g_elabelDataTmp;
    std::optional<HeldLock> lock = HeldLock::take();
    if (!lock) {
        ELABEL_LOG("driver_elabel bus busy.\n\r\n");
        return kBusBusy;
    }
    std::array<uint8_t, kMagicSize> magic{};
    if (!read_magic(magic)) {
        TAVO_LOG_TO(tavo::log::kGp, kUnit, "read ElectronicLabel failed\r\n\r\n");
        return -1;
    }
    Image image = current_image();
    if (!has_magic(magic)) {
        return format_label(image);
    }
    if (DriverElabelReadAndVerify(image) != 0) {
        return replace_unreadable_label(image);
    }
    g_elabelEnv.flags |= kElabelFlagVerified;
    return 0;
}

// `dest` or `length` null is refused with kBadArgument: there is nowhere to put the item.
TAVO_API int DriverElabelGetData(uint8_t item, uint8_t **dest, uint16_t *length) {
    if (g_elabelEnv.image == nullptr) {
        int status = DriverElabelInit();
        if (status != 0) {
            ELABEL_LOG("DriverElabelInit failed.%d \r\n\r\n", status);
            return -1;
        }
    }
    std::optional<std::size_t> row = DriverElabelFindItem(item);
    if (!row) {
        // The same record as a set of an unknown item, which log readers already match.
        ELABEL_LOG("DriverElabelSetData: no item %d\r\n\r\n", item);
        return kBadArgument;
    }
    if (g_elabelEnv.image == nullptr) {
        ELABEL_LOG("DriverElabelGetData: elabel data is NULL\r\n\r\n");
        return kNoImage;
    }
    if (dest == nullptr || length == nullptr) {
        return kBadArgument;
    }
    Image image = current_image();
    const Item &entry = kItems[*row];
    *length = slot_length(image, entry);
    int status = memcpy_s(*dest, std::size_t{*length} + 1, slot_data(image, entry), *length);
    if (status != 0) {
        ELABEL_LOG("call memcpy_s failed! %d\n\r\n", status);
        return kCopyFailed;
    }
    return 0;
}

TAVO_API int DriverElabelSetData(uint8_t item, const uint8_t *source, uint16_t offset,
                                 uint8_t count) {
    if (g_elabelEnv.image == nullptr) {
        int status = init_for_set();
        if (status != 0) {
            ELABEL_LOG("DriverElabelInit failed. %d\r\n\r\n", status);
            return -1;
        }
    }
    if (source == nullptr || count == 0) {
        ELABEL_LOG("DriverElabelSetData: argument invalid\r\n\r\n");
        return kBadArgument;
    }
    std::optional<std::size_t> row = DriverElabelFindItem(item);
    if (!row) {
        ELABEL_LOG("DriverElabelSetData: no item %d\r\n\r\n", item);
        return kBadArgument;
    }
    const Item &entry = kItems[*row];
    const std::size_t end = std::size_t{offset} + count;
    if (end > entry.max_length) {
        ELABEL_LOG("DriverElabelSetData: data to write is too long \r\n\r\n");
        return kBadArgument;
    }
    if (g_elabelEnv.image == nullptr) {
        return kNoImage;
    }
    Image image = current_image();
    uint8_t *data = slot_data(image, entry);
    if (offset == 0) {
        int cleared = memset_s(data, entry.max_length, 0, entry.max_length);
        if (cleared != 0) {
            ELABEL_LOG("call memset_s failed! %d\n\r\n", cleared);
        }
    }
    // The limit is the whole data area: the check above already keeps offset + count
    // inside it, and the source, caller memory, cannot overlap the image.
    int status = memcpy_s(data + offset, entry.max_length, source, count);
    if (status != 0) {
        ELABEL_LOG("call memcpy_s failed! %d\n\r\n", status);
        return kCopyFailed;
    }
    store_slot_header(image, entry, static_cast<uint16_t>(end));
    status = DriverElabelUpdate();
    if (status < 0) {
        ELABEL_LOG("elabel_update Error.%d \r\n\r\n", status);
        return -1;
    }
    return 0;
}

// Erase first, then write: a failure in between leaves a blank label, which the next
// init formats, rather than a half-written one.
TAVO_API int DriverElabelUpdate(void) {
    if (g_elabelEnv.image == nullptr) {
        return kNoImage;
    }
    std::unique_ptr<uint8_t[]> snapshot(new (std::nothrow) uint8_t[kImageSize]);
    if (!snapshot) {
        ELABEL_LOG("Card device info malloc failed.\n\r\n");
        return kOutOfMemory;
    }
    int status = memcpy_s(snapshot.get(), kImageSize, g_elabelEnv.image, kImageSize);
    if (status != 0) {
        ELABEL_LOG("call memcpy_s failed.%d.\n\r\n", status);
        return kNoImage;
    }
    std::optional<HeldLock> lock = HeldLock::take();
    if (!lock) {
        ELABEL_LOG("driver_elabel bus busy.\n\r\n");
        return kBusBusy;
    }
    status = DriverFlashEraseElectronicLabel();
    if (status != 0) {
        ELABEL_LOG("fail to DriverFlashEraseElectronicLabel. %d\r\n\r\n", status);
        return -1;
    }
    status = DriverFlashWritElectronicLabel(snapshot.get(), 0, kImageSize);
    if (status != 0) {
        ELABEL_LOG("fail to DriverFlashWritElectronicLabel. %d\r\n\r\n", status);
        return -1;
    }
    return 0;
}

// Leaves the EEPROM blank without taking the lock; the next init in any process
// formats it.
TAVO_API int DriverElabelClear(void) {
    if (g_elabelEnv.image != nullptr) {
        int cleared = memset_s(g_elabelEnv.image, kImageSize, 0, kImageSize);
        if (cleared != 0) {
            ELABEL_LOG("call memset_s failed! %d\n\r\n", cleared);
        }
        DriverElabelSetDefault(current_image());
    }
    int status = DriverFlashEraseElectronicLabel();
    if (status != 0) {
        ELABEL_LOG("DriverElabelClear: fail to erase flash.%d \r\n\r\n", status);
        return -1;
    }
    return 0;
}
