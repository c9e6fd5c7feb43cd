// Common pieces of the label tests: a fresh store and empty logs before every test,
// and label images built and inspected byte by byte.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

#include "drivers/driver_elable.h"
#include "log_reader.h"
#include "virtual_time.h"

namespace tavo::test {

namespace elabel = tavo::drivers::elabel;
using LabelImage = std::array<uint8_t, elabel::kImageSize>;

inline void reset_label_store() {
    g_elabelEnv = ElabelEnv{0, nullptr};
    std::memset(g_elabelDataTmp, 0, sizeof g_elabelDataTmp);
}

inline const elabel::Item &item_by_id(uint8_t id) {
    for (const elabel::Item &item : elabel::kItems) {
        if (item.id == id) {
            return item;
        }
    }
    ADD_FAILURE() << "no item " << int{id};
    return elabel::kItems[0];
}

inline uint16_t le16_at(const uint8_t *image, std::size_t at) {
    return static_cast<uint16_t>(image[at] | (image[at + 1] << 8));
}

inline void put_le16(uint8_t *image, std::size_t at, uint16_t value) {
    image[at] = static_cast<uint8_t>(value);
    image[at + 1] = static_cast<uint8_t>(value >> 8);
}

// The fields of one slot of an image, as stored.
struct Slot {
    uint16_t crc;
    uint16_t length;
    std::string data;  // the whole data area
};

inline Slot slot_of(const uint8_t *image, const elabel::Item &item) {
    const uint8_t *data = image + item.slot_offset + elabel::kSlotHeaderSize;
    return {le16_at(image, item.slot_offset), le16_at(image, item.slot_offset + 2),
            std::string(reinterpret_cast<const char *>(data), item.max_length)};
}

// Stores `text` as item `id` with its length and CRC.
inline void put_item(LabelImage &image, uint8_t id, std::string_view text) {
    const elabel::Item &item = item_by_id(id);
    uint8_t *data = image.data() + item.slot_offset + elabel::kSlotHeaderSize;
    std::memset(data, 0, item.max_length);
    std::memcpy(data, text.data(), text.size());
    put_le16(image.data(), item.slot_offset + 2, static_cast<uint16_t>(text.size()));
    put_le16(image.data(), item.slot_offset, Crc16(data, static_cast<uint32_t>(text.size())));
}

// A well-formed label: the magic, the given items, every other item empty.
inline LabelImage label_with(std::initializer_list<std::pair<uint8_t, std::string_view>> items) {
    LabelImage image{};
    std::memcpy(image.data(), "BALE", 4);
    for (const auto &[id, text] : items) {
        put_item(image, id, text);
    }
    return image;
}

// Every CRC and length of `image` holds and the magic is there.
inline ::testing::AssertionResult label_is_consistent(const uint8_t *image) {
    if (std::memcmp(image, "BALE", 4) != 0) {
        return ::testing::AssertionFailure() << "no magic";
    }
    for (std::size_t row = 0; row < elabel::kItemCount; ++row) {
        const elabel::Item &item = elabel::kItems[row];
        Slot slot = slot_of(image, item);
        if (slot.length > item.max_length ||
            Crc16(reinterpret_cast<const uint8_t *>(slot.data.data()), slot.length) != slot.crc) {
            return ::testing::AssertionFailure() << "item row " << row << " is corrupt";
        }
    }
    return ::testing::AssertionSuccess();
}

class ElabelTest : public ::testing::Test {
  protected:
    void SetUp() override {
        reset_label_store();
        remove_logs();
        clear_requested_sleeps();
    }

    static std::string origin(std::string_view function) {
        return std::string("driver_elable,") + std::string(function);
    }
    static bool err_logged(std::string_view function, std::string_view text) {
        return logged(kErrLog, origin(function), text);
    }
    static std::size_t err_count(std::string_view function, std::string_view text) {
        std::size_t n = 0;
        for (const LogRecord &r : read_log(kErrLog)) {
            n += message_origin(r) == origin(function) && message_text(r) == text ? 1 : 0;
        }
        return n;
    }
};

}  // namespace tavo::test
