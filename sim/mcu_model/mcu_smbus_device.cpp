#include "mcu_smbus_device.h"

#include <algorithm>

namespace tavo::mcu_model {

bool McuSmbusDevice::write(std::span<const std::uint8_t> data) {
    if (data.empty()) {
        return true;
    }
    register_ = data[0];
    if (register_ == kResponseRegister && data.size() == 1) {
        return true;
    }
    if (register_ != kRequestRegister || data.size() < 2 ||
        data.size() != std::size_t{data[1]} + 2) {
        return false;
    }
    std::span<const std::uint8_t> request = data.subspan(2);
    if (request.size() < kHeaderSize) {
        response_.clear();
        return true;
    }
    std::uint16_t command = static_cast<std::uint16_t>(request[2] | request[3] << 8);
    std::optional<std::vector<std::uint8_t>> answer =
        model_.handle(request, McuModel::smbus_direction(command), Transport::smbus);
    response_ = answer.value_or(std::vector<std::uint8_t>{});
    return true;
}

void McuSmbusDevice::read(std::span<std::uint8_t> data) {
    std::fill(data.begin(), data.end(), 0);
    if (register_ != kResponseRegister || data.empty()) {
        return;
    }
    data[0] = static_cast<std::uint8_t>(response_.size());
    std::size_t count = std::min(response_.size(), data.size() - 1);
    std::copy_n(response_.begin(), count, data.begin() + 1);
}

}  // namespace tavo::mcu_model
