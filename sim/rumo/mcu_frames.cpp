#include "mcu_frames.h"

#include <algorithm>

namespace tavo::sim {

rumo_sim_mcu_frame to_c_frame(const mcu_model::Frame &frame, std::uint32_t slot_id) {
    rumo_sim_mcu_frame out{};
    out.slot_id = slot_id;
    out.transport = static_cast<std::uint32_t>(frame.transport);
    out.relay = frame.relay;
    out.direction = static_cast<std::uint32_t>(frame.direction);
    out.request_size = frame.request_size;
    out.control = frame.control;
    out.argument = frame.argument;
    out.command = frame.command;
    out.offset = frame.offset;
    out.length = frame.length;
    std::size_t count = std::min<std::size_t>(frame.data.size(), RUMO_SIM_MCU_DATA_MAX);
    out.data_length = static_cast<std::uint32_t>(count);
    std::copy_n(frame.data.begin(), count, out.data);
    return out;
}

}  // namespace tavo::sim
