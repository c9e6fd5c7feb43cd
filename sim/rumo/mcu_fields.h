// The "mcu" object of a card in the host description: the card's MCU, its links
// to the card's chips and the contents of its items.
#pragma once

#include "host_model.h"
#include "json_read.h"

#include <cstddef>
#include <string>

namespace tavo::sim {

// The MCU of `card`, which carries `chip_count` chips, from the description at
// `path`. Items not described take defaults (board, PCB and BOM ids from the card).
mcu_model::McuConfig parse_mcu(const json &value, const std::string &path, const Card &card,
                               std::size_t chip_count);

}  // namespace tavo::sim
