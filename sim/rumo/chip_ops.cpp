#include "chip_ops.h"

#include <algorithm>
#include <cstring>
#include <ctime>

namespace tavo::sim {

namespace {

UserConfigItem *find_item(Chip &chip, const char *name) {
    auto it = chip.user_config.find(std::string_view(name));
    return it == chip.user_config.end() ? nullptr : &it->second;
}

const UserConfigItem *find_item(const Chip &chip, const char *name) {
    auto it = chip.user_config.find(std::string_view(name));
    return it == chip.user_config.end() ? nullptr : &it->second;
}

}  // namespace

int read_system_time(const Chip &chip, std::uint32_t *seconds) {
    if (chip.system_time) {
        return put(seconds, *chip.system_time);
    }
    return put(seconds, static_cast<std::uint32_t>(std::time(nullptr)));
}

int read_flash(const Chip &chip, std::uint32_t index, rumo_flash_info *info) {
    if (info == nullptr) {
        return RUMO_SIM_ERR_INVALID_ARGUMENT;
    }
    if (index >= chip.flash.size()) {
        return RUMO_SIM_ERR_NOT_FOUND;
    }
    *info = chip.flash[index];
    return RUMO_SIM_OK;
}

int read_error_codes(const Chip &chip, std::int32_t *count, std::uint32_t *codes) {
    if (count == nullptr || codes == nullptr) {
        return RUMO_SIM_ERR_INVALID_ARGUMENT;
    }
    std::size_t n = std::min(chip.error_codes.size(), kMaxErrorCodes);
    std::copy_n(chip.error_codes.begin(), n, codes);
    *count = static_cast<std::int32_t>(n);
    return RUMO_SIM_OK;
}

int read_error_string(const Chip &chip, std::uint32_t code, unsigned char *text,
                      std::int32_t size) {
    if (text == nullptr || size < 0) {
        return RUMO_SIM_ERR_INVALID_ARGUMENT;
    }
    auto it = chip.error_strings.find(code);
    if (it == chip.error_strings.end()) {
        return RUMO_SIM_ERR_NOT_FOUND;
    }
    if (size == 0) {
        return RUMO_SIM_ERR_SIZE;
    }
    std::size_t n = std::min(it->second.size(), static_cast<std::size_t>(size) - 1);
    std::memcpy(text, it->second.data(), n);
    text[n] = '\0';
    return RUMO_SIM_OK;
}

int copy_version_text(std::string_view text, char *out, std::uint32_t size, std::uint32_t *length) {
    if (out == nullptr || length == nullptr) {
        return RUMO_SIM_ERR_INVALID_ARGUMENT;
    }
    if (text.size() + 1 > size) {
        return RUMO_SIM_ERR_SIZE;
    }
    std::memcpy(out, text.data(), text.size());
    out[text.size()] = '\0';
    *length = static_cast<std::uint32_t>(text.size());
    return RUMO_SIM_OK;
}

int read_component_version(const Chip &chip, std::uint8_t component, unsigned char *text,
                           std::uint32_t size, std::uint32_t *length) {
    if (text == nullptr || length == nullptr) {
        return RUMO_SIM_ERR_INVALID_ARGUMENT;
    }
    auto it = chip.component_versions.find(component);
    if (it == chip.component_versions.end()) {
        return RUMO_SIM_ERR_NOT_FOUND;
    }
    return copy_version_text(it->second, reinterpret_cast<char *>(text), size, length);
}

int set_user_config(Chip &chip, const char *name, std::uint32_t size,
                    const unsigned char *content) {
    if (name == nullptr || content == nullptr || size == 0) {
        return RUMO_SIM_ERR_INVALID_ARGUMENT;
    }
    UserConfigItem *item = find_item(chip, name);
    if (item == nullptr) {
        return RUMO_SIM_ERR_NOT_FOUND;
    }
    if (size > item->max_size) {
        return RUMO_SIM_ERR_SIZE;
    }
    item->value.assign(content, content + size);
    return RUMO_SIM_OK;
}

int get_user_config(const Chip &chip, const char *name, std::uint32_t size, unsigned char *buffer) {
    if (name == nullptr || buffer == nullptr) {
        return RUMO_SIM_ERR_INVALID_ARGUMENT;
    }
    const UserConfigItem *item = find_item(chip, name);
    if (item == nullptr) {
        return RUMO_SIM_ERR_NOT_FOUND;
    }
    if (size < item->value.size()) {
        return RUMO_SIM_ERR_SIZE;
    }
    std::copy(item->value.begin(), item->value.end(), buffer);
    std::fill(buffer + item->value.size(), buffer + size, 0);
    return RUMO_SIM_OK;
}

int clear_user_config(Chip &chip, const char *name) {
    if (name == nullptr) {
        return RUMO_SIM_ERR_INVALID_ARGUMENT;
    }
    UserConfigItem *item = find_item(chip, name);
    if (item == nullptr) {
        return RUMO_SIM_ERR_NOT_FOUND;
    }
    item->value.clear();
    return RUMO_SIM_OK;
}

int set_ssh_enable(Chip &chip, std::uint32_t enable) {
    if (enable > 1) {
        return RUMO_SIM_ERR_INVALID_ARGUMENT;
    }
    const unsigned char state = static_cast<unsigned char>(enable);
    return set_user_config(chip, kSshStatusItem, 1, &state);
}

int get_ssh_enable(const Chip &chip, std::uint32_t *enable) {
    if (enable == nullptr) {
        return RUMO_SIM_ERR_INVALID_ARGUMENT;
    }
    const UserConfigItem *item = find_item(chip, kSshStatusItem);
    if (item == nullptr) {
        return RUMO_SIM_ERR_NOT_FOUND;
    }
    *enable = item->value.empty() ? 0 : item->value.front();
    return RUMO_SIM_OK;
}

int read_heartbeat(Chip &chip, std::uint8_t *status, std::uint32_t *counter) {
    if (status == nullptr || counter == nullptr) {
        return RUMO_SIM_ERR_INVALID_ARGUMENT;
    }
    *status = chip.heartbeat.status;
    *counter = chip.heartbeat.counter;
    if (chip.heartbeat.status == 1) {
        ++chip.heartbeat.counter;
    }
    return RUMO_SIM_OK;
}

}  // namespace tavo::sim
