// Requests recorded by an MCU model, as the control interface hands them out.
#pragma once

#include "mcu_model.h"

#include <rumo/rumo_sim.h>

#include <cstdint>

namespace tavo::sim {

// `slot_id` names the card whose MCU received the frame.
rumo_sim_mcu_frame to_c_frame(const mcu_model::Frame &frame, std::uint32_t slot_id);

}  // namespace tavo::sim
