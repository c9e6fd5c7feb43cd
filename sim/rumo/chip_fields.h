// The fields of a chip in the host description: defaults, checks, and setting
// one field at run time (rumo_sim_set_value) with the same checks as the file.
#pragma once

#include "host_model.h"
#include "json_read.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace tavo::sim {

// Every chip field with its default; `position` is the chip's place in the host.
json default_chip_json(std::uint32_t logic_id, std::size_t position);

// A chip of the description at `path`. Its logic id defaults to `position`.
Chip parse_chip(const json &value, const std::string &path, std::size_t position);

// Sets field `key` as the description would. Records (aicore, memory, hbm, chip,
// pcie, heartbeat) keep the members not given; other fields are replaced whole.
// A null value restores the field's default. logic_id cannot be set.
void set_chip_field(Chip &chip, std::size_t position, std::string_view key, const json &value);

}  // namespace tavo::sim
